#!/usr/bin/env bash
# Lints the Debian packages that `make deb` built, unpacks each
# architecture's pair into a private root with dpkg-deb, and builds the small
# host of tests/install against that root with pkg-config and with CMake's
# find_package, as a build machine with the packages would, and runs it: the
# amd64 host natively, the armhf one under qemu-arm. Runs as any user and
# whether or not the packages are installed on this machine, which it leaves
# as it was.
#
#   package_test.sh AMD64_DEB_DIR ARMHF_DEB_DIR SOURCE_DIR
set -euo pipefail
source=$(cd "$3" && pwd)
version=$(dpkg-parsechangelog -l "$source/packaging/changelog" -S Version)
. "$source/tests/install/consumer.sh"

# Debian's own checks, the copyright file's included, less two that do not
# apply: the packages are not uploaded to Debian, so no bug is closed; and
# CPack's maintainer scripts call ldconfig beside the trigger.
# Its scratch files go into $work, which is removed on exit.
suppressed=initial-upload-closes-no-bugs,maintscript-calls-ldconfig
if ! report=$(TMPDIR=$work lintian --fail-on error,warning --suppress-tags "$suppressed" \
  "$1"/*.deb "$2"/*.deb 2>&1); then
  echo "$report"
  fail "lintian"
fi
echo "ok: lintian"

# Unpacks one architecture's packages into $work/ARCH and builds the host
# against them, finding them only through the root's own paths.
unpack_and_build() {
  local dir=$1 arch=$2 triplet=$3 cxx=$4 cmake_arguments=$5 root=$work/$2
  for package in libzelcli0 libzelcli-dev; do
    dpkg-deb -x "$dir/${package}_${version}_$arch.deb" "$root"
  done
  test -L "$root/usr/lib/$triplet/libzelcli.so.0" || fail "no libzelcli.so.0 link ($arch)"
  export PKG_CONFIG_LIBDIR=$root/usr/lib/$triplet/pkgconfig PKG_CONFIG_SYSROOT_DIR=$root
  build_consumers "$arch" "$cxx" "$cmake_arguments -DCMAKE_PREFIX_PATH=$root/usr"
}

unpack_and_build "$1" amd64 x86_64-linux-gnu g++ ""
unpack_and_build "$2" armhf arm-linux-gnueabihf arm-linux-gnueabihf-g++ \
  "-DCMAKE_TOOLCHAIN_FILE=$source/cmake/toolchains/arm-linux-gnueabihf.cmake"
