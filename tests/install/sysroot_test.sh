#!/usr/bin/env bash
# Cross-builds zelcli for 32-bit ARM the way Buildroot and Yocto do: a sysroot
# made of Debian's armhf C and C++ development packages, a compiler wrapper
# that always passes it, a toolchain file like the ones those build systems
# write, the /usr prefix, and DESTDIR staging into the sysroot itself. Then a
# product's host is built against the staged library with CMake and with
# pkg-config and run under qemu-arm, loading only what the sysroot holds.
# Clang finds every header and library of a Debian-style sysroot; Debian's
# cross g++ would take its own.
#
#   sysroot_test.sh SOURCE_DIR DEB_CACHE_DIR
set -euo pipefail
source=$(cd "$1" && pwd)
cache=$2
. "$source/tests/install/consumer.sh"

. "$source/scripts/debian.conf"
read -ra packages <<<"$SYSROOT_DEBS"
mkdir -p "$cache"
(cd "$cache" && for package in "${packages[@]}"; do
  compgen -G "${package}_*_armhf.deb" >/dev/null || apt-get download -q "$package:armhf"
done) >"$work/download.log" 2>&1 || { cat "$work/download.log"; fail "apt-get download"; }
sysroot=$work/sysroot
for package in "${packages[@]}"; do
  dpkg-deb -x "$(compgen -G "$cache/${package}_*_armhf.deb")" "$sysroot"
done

mkdir "$work/bin"
cat >"$work/bin/arm-linux-gnueabihf-c++" <<WRAPPER
#!/bin/sh
exec clang++ --target=arm-linux-gnueabihf --sysroot="$sysroot" "\$@"
WRAPPER
chmod +x "$work/bin/arm-linux-gnueabihf-c++"
cat >"$work/toolchainfile.cmake" <<TOOLCHAIN
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_SYSROOT "$sysroot")
set(CMAKE_FIND_ROOT_PATH "\${CMAKE_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} "\${CMAKE_SYSROOT}")
set(CMAKE_CXX_COMPILER "$work/bin/arm-linux-gnueabihf-c++")
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L "$sysroot")
TOOLCHAIN

{ cmake -S "$source" -B "$work/build" -DCMAKE_TOOLCHAIN_FILE="$work/toolchainfile.cmake" \
  -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_BUILD_TYPE=Release &&
  cmake --build "$work/build" && DESTDIR=$sysroot cmake --install "$work/build"; } \
  >"$work/build.log" 2>&1 || { cat "$work/build.log"; fail "cross build and staging"; }

PKG_CONFIG_LIBDIR=$(dirname "$(find "$sysroot/usr/lib" -name zelcli.pc)")
export PKG_CONFIG_LIBDIR PKG_CONFIG_SYSROOT_DIR=$sysroot
build_consumers staged "$work/bin/arm-linux-gnueabihf-c++" \
  "-DCMAKE_TOOLCHAIN_FILE=$work/toolchainfile.cmake"
