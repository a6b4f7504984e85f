#!/usr/bin/env bash
# Lints the Debian packages that `make deb` built, then installs them into
# this machine with dpkg, as a device team's build machine would, builds the
# small host of tests/install against them with pkg-config and with CMake's
# find_package, runs it, and removes the packages again. The amd64 host runs
# natively, the armhf one (cross-compiled against the armhf packages) under
# qemu-arm. Needs root, since dpkg writes to the system.
#
#   package_test.sh AMD64_DEB_DIR ARMHF_DEB_DIR SOURCE_DIR
set -euo pipefail
source=$(cd "$3" && pwd)
version=$(dpkg-parsechangelog -l "$source/packaging/changelog" -S Version)
packages=(libzelcli0 libzelcli-dev)

fail() { echo "FAILED: $*" >&2; exit 1; }

[ "$(id -u)" -eq 0 ] || fail "the package test installs packages with dpkg and must run as root"
installed=$(dpkg-query -W -f='${Status}\n' "${packages[@]}" 2>/dev/null || true)
[[ $installed != *"ok installed"* ]] || fail "remove the installed ${packages[*]} first (dpkg -r)"

work=$(mktemp -d)
cleanup() {
  dpkg -P "${packages[@]}" >/dev/null 2>&1 || true
  rm -rf "$work"
}
trap cleanup EXIT

. "$source/tests/install/consumer.sh"

# Installs the packages of one architecture, builds the host both ways with
# nothing pointing at the packages but the system's own search paths, and
# removes them.
install_and_build() {
  local dir=$1 arch=$2 triplet=$3 cxx=$4 cmake_arguments=$5
  shift 5
  dpkg -i "$dir/libzelcli0_${version}_$arch.deb" "$dir/libzelcli-dev_${version}_$arch.deb" \
    >"$work/dpkg.log" 2>&1 || { cat "$work/dpkg.log"; fail "dpkg -i ($arch)"; }
  export PKG_CONFIG_LIBDIR=/usr/lib/$triplet/pkgconfig
  build_consumers "$arch" "$cxx" "$cmake_arguments" "$@"
  dpkg -P "${packages[@]}" >"$work/dpkg.log" 2>&1 || { cat "$work/dpkg.log"; fail "dpkg -P"; }
  test ! -e "/usr/lib/$triplet/libzelcli.so.0" || fail "libzelcli.so.0 left behind ($arch)"
  test ! -e /usr/include/zel || fail "/usr/include/zel left behind ($arch)"
  # With the library gone the host no longer starts: it used the package's.
  if "$@" "$work/$arch-pc" <"$work/keys" >/dev/null 2>&1; then
    fail "the $arch host still runs without libzelcli0"
  fi
  echo "ok: $arch packages removed"
}

# Debian's own checks, the copyright file's included, less two that do not
# apply: the packages are not uploaded to Debian, so no bug is closed; and
# CPack's maintainer scripts call ldconfig beside the trigger.
suppressed=initial-upload-closes-no-bugs,maintscript-calls-ldconfig
if ! report=$(lintian --fail-on error,warning --suppress-tags "$suppressed" \
  "$1"/*.deb "$2"/*.deb 2>&1); then
  echo "$report"
  fail "lintian"
fi
echo "ok: lintian"

install_and_build "$1" amd64 x86_64-linux-gnu g++ ""
# The cross compiler's own C library comes first, as for the ARM tests, then
# the multiarch directory where libzelcli0:armhf put the library.
install_and_build "$2" armhf arm-linux-gnueabihf arm-linux-gnueabihf-g++ \
  "-DCMAKE_TOOLCHAIN_FILE=$source/cmake/toolchains/arm-linux-gnueabihf.cmake" \
  qemu-arm -L /usr/arm-linux-gnueabihf \
  -E LD_LIBRARY_PATH=/usr/arm-linux-gnueabihf/lib:/usr/lib/arm-linux-gnueabihf
