#!/usr/bin/env bash
# Builds the zelcli package with real Buildroot for 32-bit ARM, as products
# take it: with BR2_EXTERNAL pointing at this checkout's buildroot/ tree
# (shared libraries only, then both static and shared), and as a package of
# Buildroot's own tree that downloads make dist's release from a primary
# site, its hash checked. It
# checks what each build staged and put in the target tree. Runs offline and
# as any user: Debian's cross compiler is wrapped as a custom external
# toolchain, and Debian's sources of pkgconf and tar are offline stand-ins
# for the host tools Buildroot downloads. A user with internet needs neither.
#
# The release is debian.conf's BUILDROOT_RELEASE, whose tarball is in
# BUILDROOT_DIR.
#
#   buildroot_test.sh BUILDROOT_DIR SOURCE_DIR DIST_DIR WORK_DIR
set -euo pipefail
source=$(cd "$2" && pwd) dist=$(cd "$3" && pwd)
. "$source/tests/support/lib.sh"
. "$source/scripts/debian.conf"
tarball=$1/buildroot-$BUILDROOT_RELEASE.tar.xz
[ -f "$tarball" ] ||
  fail "no $tarball: BUILDROOT names the folder of Buildroot's release archive, absolute"
tarball=$(realpath "$tarball")
mkdir -p "$4"
work=$(cd "$4" && pwd)
buildroot=$work/buildroot
log() { "$@" >"$work/step.log" 2>&1 || { tail -40 "$work/step.log"; fail "$*"; }; }

[ -e "$buildroot/Makefile" ] || { mkdir -p "$buildroot" &&
  tar xf "$tarball" -C "$buildroot" --strip-components=1; }
# Without the package that the last run added to Buildroot's own tree.
rm -rf "$buildroot/package/zelcli"
sed -i '/"package\/zelcli\/Config.in"/d' "$buildroot/package/Config.in"
log sh -c "cd '$source/buildroot' && /usr/bin/python3 '$buildroot/utils/check-package' -b \
  \$(find . -type f)"
echo "ok: check-package"

# What Buildroot downloads or refuses, offline here: a toolchain and the
# host tools' sources, named in $work/toolchain.defconfig.
log "$support/buildroot-offline.sh" "$work"

# Host-tar's configure refuses to run as root unless told.
[ "$(id -u)" -ne 0 ] || export FORCE_UNSAFE_CONFIGURE=1
output=$work/output
staging=$output/host/arm-buildroot-linux-gnueabihf/sysroot target=$output/target
{ cat "$work/toolchain.defconfig"; printf '%s\n' BR2_DL_DIR=\""$work/dl"\" BR2_INIT_NONE=y \
  BR2_SYSTEM_BIN_SH_NONE=y BR2_PACKAGE_BUSYBOX=n BR2_TARGET_ROOTFS_TAR=n BR2_PACKAGE_ZELCLI=y \
  BR2_PACKAGE_ZELCLI_EXAMPLES=y; } >"$work/defconfig"
printf 'hello buildroot\nexit\n' >"$work/keys"
# Each build starts clean and is checked on what it installed itself.
build_zelcli() {
  log make -C "$output" zelcli-dirclean
  rm -rf "$staging"/usr/include/zel "$staging"/usr/lib/libzelcli.* \
    "$staging"/usr/lib/pkgconfig/zelcli.pc "$staging"/usr/lib/cmake/zelcli \
    "$target"/usr/lib/libzelcli.* "$target"/usr/bin/{minimal,device}_shell
  log make -C "$output" zelcli
}
# What a build of the package staged and installed.
check_build() {
  local libraries=$1 library=libzelcli.so.0
  (cd "$staging/usr" && ls include/zel/cli/cmd_line_interface.h include/zel/cli/console.h \
    lib/pkgconfig/zelcli.pc lib/cmake/zelcli/zelcliConfig.cmake "lib/$library" >/dev/null) ||
    fail "staging lacks a file ($libraries)"
  test -e "$target/usr/lib/$library" || fail "target has no $library ($libraries)"
  said=$(qemu-arm -L "$target" "$target/usr/bin/minimal_shell" <"$work/keys")
  [[ $said == *"hello, buildroot"* ]] || fail "minimal_shell ($libraries) printed: $said"
  echo "ok: $libraries: usr/lib/$library, headers, zelcli.pc and the CMake package in" \
    "staging; example hosts in the target that run"
}

# The product's checkout: a copy of this one's files without its build trees,
# since legal-info archives a local package's whole folder.
"$support/copy_checkout.sh" "$source" "$work/checkout"
log make -C "$buildroot" O="$output" BR2_EXTERNAL="$work/checkout/buildroot" \
  BR2_DEFCONFIG="$work/defconfig" defconfig
grep -qx BR2_PACKAGE_ZELCLI=y "$output/.config" || fail "zelcli cannot be selected"
cmake=$(sed -n 's/^cmake_minimum_required(VERSION \([0-9]*\)\.\([0-9]*\))$/\1_\2/p' \
  "$source/CMakeLists.txt")
grep -qx "BR2_HOST_CMAKE_AT_LEAST_$cmake=y" "$output/.config" ||
  fail "the package does not ask Buildroot for the CMake ${cmake/_/.} that CMakeLists.txt needs"
build_zelcli
check_build "shared only"
log make -C "$output" zelcli-legal-info
echo "ok: the checkout's LICENSE matches zelcli.hash"

# "Both static and shared", the other choice a glibc toolchain offers: CMake
# packages get BUILD_SHARED_LIBS=ON there, and zelcli, which makes one library
# per build, installs the shared one. Static only (BR2_STATIC_LIBS) needs a
# uClibc-ng or musl toolchain, which cannot be had offline here.
{ cat "$work/defconfig"; echo BR2_SHARED_STATIC_LIBS=y; } >"$work/both.defconfig"
log make -C "$output" BR2_DEFCONFIG="$work/both.defconfig" defconfig
grep -qx BR2_SHARED_STATIC_LIBS=y "$output/.config" || fail "BR2_SHARED_STATIC_LIBS not taken"
build_zelcli
check_build "both static and shared"

# A package of Buildroot's own tree: the release's archive comes from its
# site, here a local primary site and nothing else, and is hash-checked
# against make dist's zelcli.hash. The Buildroot tree is this test's own copy.
package=$buildroot/package/zelcli
rm -rf "$work/dl/zelcli"
mkdir "$package"
cp "$source/buildroot/package/zelcli/Config.in" "$dist/zelcli.hash" "$package/"
sed '/^# The checkout/,/^$/c\
ZELCLI_SITE = https://git.c-seed-8922eda5.example/zelcli/releases/download/v$(ZELCLI_VERSION)\
' "$source/buildroot/package/zelcli/zelcli.mk" >"$package/zelcli.mk"
sed -i 's|^\tsource "package/utfcpp/Config.in"$|&\n\tsource "package/zelcli/Config.in"|' \
  "$buildroot/package/Config.in"
log sh -c "cd '$buildroot' && /usr/bin/python3 utils/check-package package/zelcli/*"
printf '%s\n' BR2_PRIMARY_SITE=\"file://$dist\" BR2_PRIMARY_SITE_ONLY=y >>"$work/defconfig"
log make -C "$buildroot" O="$output" BR2_EXTERNAL= BR2_DEFCONFIG="$work/defconfig" defconfig
build_zelcli
version=$(sed -n 's/^ZELCLI_VERSION = //p' "$package/zelcli.mk")
grep -q "^zelcli-$version.tar.gz: OK (sha256: " "$work/step.log" ||
  fail "the release's archive was not hash-checked"
cmp -s "$work/dl/zelcli/zelcli-$version.tar.gz" "$dist/zelcli-$version.tar.gz" ||
  fail "the downloaded archive is not make dist's"
check_build "the release"
echo "ok: the release zelcli-$version.tar.gz downloaded and its hash checked"
