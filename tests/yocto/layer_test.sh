#!/usr/bin/env bash
# Checks the meta-zelcli layer where bitbake cannot run: the recipe's licence
# checksum and version against the project's, and its ptest payload, the
# in-process tests cross-built for ARM, run by the layer's run-ptest under
# qemu-arm with every line read as ptest-runner reads it.
#
#   layer_test.sh SOURCE_DIR ARM_BUILD_DIR
set -euo pipefail
source=$(cd "$1" && pwd)
build=$(cd "$2" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAILED: $*" >&2; exit 1; }

recipe=$(echo "$source"/meta-zelcli/recipes-support/zelcli/zelcli_*.bb)
checksum=$(sed -n 's/^LIC_FILES_CHKSUM = "file:\/\/LICENSE;md5=\([0-9a-f]*\)"$/\1/p' "$recipe")
[ "$checksum" = "$(md5sum <"$source/LICENSE" | cut -d' ' -f1)" ] ||
  fail "LIC_FILES_CHKSUM '$checksum' is not the md5 of LICENSE"
version=$(sed -n 's/^project(zelcli VERSION \([0-9.]*\).*/\1/p' "$source/CMakeLists.txt")
[ "${recipe##*/}" = "zelcli_$version.bb" ] || fail "${recipe##*/} is not version $version"
echo "ok: ${recipe##*/}: licence checksum and version"

# run-ptest as installed, with the ARM test program behind qemu-arm.
cp "$source/meta-zelcli/recipes-support/zelcli/zelcli/run-ptest" "$work/"
cat >"$work/zelcli_tests" <<WRAPPER
#!/bin/sh
exec qemu-arm -L /usr/arm-linux-gnueabihf -E LD_LIBRARY_PATH=/usr/arm-linux-gnueabihf/lib \
  "$build/tests/zelcli_tests" "\$@"
WRAPPER
chmod +x "$work/zelcli_tests"
"$work/run-ptest" >"$work/ptest.log"
if ! grep -q '^PASS: ' "$work/ptest.log" || grep -v '^PASS: ' "$work/ptest.log"; then
  fail "run-ptest gave a line that is not PASS:, or none"
fi
echo "ok: run-ptest on ARM: $(wc -l <"$work/ptest.log") lines, all PASS:"
