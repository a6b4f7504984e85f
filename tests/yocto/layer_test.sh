#!/usr/bin/env bash
# Checks the meta-zelcli layer where bitbake cannot run: the recipe's licence
# checksum and version against the project's. (Its run-ptest runs on the
# emulated board, make check-board.)
#
#   layer_test.sh SOURCE_DIR
set -euo pipefail
source=$(cd "$1" && pwd)
fail() { echo "FAILED: $*" >&2; exit 1; }

recipe=$(echo "$source"/meta-zelcli/recipes-support/zelcli/zelcli_*.bb)
checksum=$(sed -n 's/^LIC_FILES_CHKSUM = "file:\/\/LICENSE;md5=\([0-9a-f]*\)"$/\1/p' "$recipe")
[ "$checksum" = "$(md5sum <"$source/LICENSE" | cut -d' ' -f1)" ] ||
  fail "LIC_FILES_CHKSUM '$checksum' is not the md5 of LICENSE"
version=$(sed -n 's/^project(zelcli VERSION \([0-9.]*\).*/\1/p' "$source/CMakeLists.txt")
[ "${recipe##*/}" = "zelcli_$version.bb" ] || fail "${recipe##*/} is not version $version"
echo "ok: ${recipe##*/}: licence checksum and version"
