#!/usr/bin/env bash
# Installs a built tree into a scratch prefix, moves the prefix somewhere
# else, and builds and runs a product's host against it (consumer.sh). Moving
# the prefix proves that neither package file remembers where it was
# installed.
#
#   install_test.sh BUILD_DIR SOURCE_DIR CXX
set -euo pipefail
source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAILED: $*" >&2; exit 1; }
. "$source/tests/install/consumer.sh"

cmake --install "$1" --prefix "$work/installed" >/dev/null
mv "$work/installed" "$work/moved"
test -f "$work/moved/share/doc/zelcli/LICENSE" || fail "no LICENSE in share/doc/zelcli"
PKG_CONFIG_PATH=$(dirname "$(find "$work/moved" -name zelcli.pc)")
export PKG_CONFIG_PATH
build_consumers installed "$3" "-DCMAKE_PREFIX_PATH=$work/moved"
