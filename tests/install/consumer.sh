# shellcheck shell=bash disable=SC2154
# Sourced by the install, sysroot and package tests once they have set
# $source. It makes a scratch directory, $work, removed on exit, and defines
# build_consumers, the build a product makes: the smallest example host built
# against the installed zelcli with pkg-config (found through the caller's
# PKG_CONFIG_PATH or PKG_CONFIG_LIBDIR) and with CMake's find_package, both
# builds run, through the emulator that CMAKE_ARGUMENTS' toolchain file names.
# Each must greet the world and leave on "exit", read from a file.
#
#   build_consumers NAME CXX CMAKE_ARGUMENTS
. "$source/tests/support/lib.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

build_consumers() {
  local name=$1 cxx=$2 cmake_arguments=$3 cflags libs output
  cflags=$(pkg-config --cflags zelcli)
  libs=$(pkg-config --libs zelcli)
  [[ $cflags == *-I*/include/zel* && $libs == *-lzelcli* ]] ||
    fail "pkg-config ($name) gave '$cflags $libs'"
  # shellcheck disable=SC2086
  "$cxx" -std=c++17 "$source/examples/minimal_shell.cc" $cflags $libs \
    -Wl,-rpath,"$(pkg-config --variable=libdir zelcli)" -o "$work/$name-pc"
  # shellcheck disable=SC2086
  { cmake -S "$source/tests/install" -B "$work/$name-cmake" -DCMAKE_CXX_COMPILER="$cxx" \
    $cmake_arguments && cmake --build "$work/$name-cmake"; } >"$work/cmake.log" ||
    { cat "$work/cmake.log"; fail "CMake build ($name)"; }
  printf 'hello\nexit\n' >"$work/keys"
  for host in "$work/$name-pc" "$work/$name-cmake/minimal_shell"; do
    output=$("$work/$name-cmake/run-host" "$host" <"$work/keys")
    [[ $output == *"hello, world"* ]] || fail "$host printed: $output"
  done
  echo "ok: $name host built with pkg-config ($cflags $libs) and with find_package(zelcli)"
}
