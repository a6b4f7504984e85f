#!/usr/bin/env bash
# Installs a built tree into a scratch prefix, moves the prefix somewhere
# else, and builds and runs a small host against it twice: with pkg-config
# and with CMake's find_package. Moving the prefix proves that neither
# package file remembers where it was installed.
#
#   install_test.sh BUILD_DIR SOURCE_DIR CXX
set -euo pipefail
build=$1
source=$2
cxx=$3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/installed" >/dev/null
mv "$work/installed" "$work/moved"
prefix=$work/moved

for header in cli/cmd_line_interface.h cli/console.h; do
  test -f "$prefix/include/zel/$header" || { echo "missing include/zel/$header"; exit 1; }
done

# Each host answers "ping" and leaves on "exit", reading a file as its input.
printf 'ping\nexit\n' > "$work/keys"
run_host() {
  local output
  output=$("$1" < "$work/keys")
  case $output in
    *pong*) echo "ok: $2" ;;
    *) echo "FAILED: $2 printed: $output"; exit 1 ;;
  esac
}

pc=$(find "$prefix" -name zelcli.pc)
export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$pc")
cflags=$(pkg-config --cflags zelcli)
libs=$(pkg-config --libs zelcli)
libdir=$(pkg-config --variable=libdir zelcli)
case $cflags in
  *"$prefix"*/include/zel*) ;;
  *) echo "FAILED: pkg-config --cflags gave '$cflags', not under $prefix"; exit 1 ;;
esac
# shellcheck disable=SC2086
"$cxx" -std=c++17 "$source/tests/install/consumer.cc" $cflags $libs \
  -Wl,-rpath,"$libdir" -o "$work/by_pkg_config"
run_host "$work/by_pkg_config" "pkg-config ($cflags $libs)"

cmake -S "$source/tests/install" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_CXX_COMPILER="$cxx" >/dev/null
cmake --build "$work/consumer" >/dev/null
run_host "$work/consumer/consumer" "find_package(zelcli) with zelcli::zelcli"
