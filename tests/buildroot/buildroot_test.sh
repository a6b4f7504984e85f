#!/usr/bin/env bash
# Builds the zelcli package of the buildroot/ tree with real Buildroot for
# 32-bit ARM, shared and then static, from this checkout, and checks what it
# staged and what it put in the target tree. Runs offline and as any user:
# Debian's cross compiler is wrapped as a custom external toolchain, and
# Debian's sources of pkgconf and tar are offline stand-ins for the host tools
# Buildroot downloads. A user with internet needs neither.
#
#   buildroot_test.sh BUILDROOT_TARBALL SOURCE_DIR WORK_DIR
set -euo pipefail
tarball=$(realpath "$1") source=$(cd "$2" && pwd)
mkdir -p "$3"
work=$(cd "$3" && pwd)
buildroot=$work/buildroot toolchain=$work/toolchain standins=$work/standins
fail() { echo "FAILED: $*" >&2; exit 1; }
log() { "$@" >"$work/step.log" 2>&1 || { tail -40 "$work/step.log"; fail "$*"; }; }

[ -e "$buildroot/Makefile" ] || { mkdir -p "$buildroot" &&
  tar xf "$tarball" -C "$buildroot" --strip-components=1; }
log sh -c "cd '$source/buildroot' && /usr/bin/python3 '$buildroot/utils/check-package' -b \
  \$(find . -type f)"
grep -qx "ZELCLI_VERSION = $(sed -n 's/^project(zelcli VERSION \([0-9.]*\).*/\1/p' \
  "$source/CMakeLists.txt")" "$source/buildroot/package/zelcli/zelcli.mk" ||
  fail "zelcli.mk's version is not the project's"
echo "ok: check-package, version"

# Buildroot refuses a compiler configured for the machine's own root, so the
# toolchain is a copy of the cross compiler's target root as sysroot, and
# wrappers that answer Buildroot's questions as a compiler built for it would.
if [ ! -e "$toolchain/sysroot" ]; then
  mkdir -p "$toolchain/bin" "$toolchain/sysroot/usr"
  cp -a /usr/arm-linux-gnueabihf/lib /usr/arm-linux-gnueabihf/include "$toolchain/sysroot/usr/"
  ln -s usr/lib "$toolchain/sysroot/lib"
  ln -s /usr/bin/arm-linux-gnueabihf-* "$toolchain/bin/"
  for tool in gcc g++ cpp; do
    rm "$toolchain/bin/arm-linux-gnueabihf-$tool"
    cat >"$toolchain/bin/arm-linux-gnueabihf-$tool" <<WRAPPER
#!/bin/sh
case " \$* " in
  " -v ") /usr/bin/arm-linux-gnueabihf-$tool -v 2>&1 | sed "s| --with-sysroot=/ | --with-sysroot=$toolchain/sysroot |" >&2 ;;
  " -print-sysroot ") echo "$toolchain/sysroot" ;;
  *" -print-file-name=libc.a ") echo "$toolchain/sysroot/usr/lib/libc.a" ;;
  *) exec /usr/bin/arm-linux-gnueabihf-$tool "\$@" ;;
esac
WRAPPER
    chmod +x "$toolchain/bin/arm-linux-gnueabihf-$tool"
  done
fi

# The stand-ins, fetched with an apt state of their own.
if [ ! -e "$standins/tar" ]; then
  mkdir -p "$standins/apt/lists/partial" "$standins/apt/cache/archives/partial" "$standins/apt/src"
  sed 's/^Types: deb$/Types: deb-src/' /etc/apt/sources.list.d/debian.sources \
    >"$standins/apt/src/debian.sources"
  apt=(apt-get -q -o Dir::Etc::SourceList=/dev/null -o Dir::Etc::SourceParts="$standins/apt/src"
    -o Dir::State::Lists="$standins/apt/lists" -o Dir::Cache="$standins/apt/cache"
    -o Debug::NoLocking=1)
  log "${apt[@]}" update
  (cd "$standins" && log "${apt[@]}" source --download-only pkgconf tar)
  for tool in pkgconf tar; do
    mkdir "$standins/$tool.new"
    tar xf "$standins/${tool}_"*.orig.tar.* -C "$standins/$tool.new" --strip-components=1
    mv "$standins/$tool.new" "$standins/$tool"
  done
fi
cat >"$work/local.mk" <<LOCAL
ZELCLI_OVERRIDE_SRCDIR = $source
ZELCLI_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude /build
HOST_PKGCONF_OVERRIDE_SRCDIR = $standins/pkgconf
HOST_TAR_OVERRIDE_SRCDIR = $standins/tar
LOCAL

# Host-tar's configure refuses to run as root unless told.
[ "$(id -u)" -ne 0 ] || export FORCE_UNSAFE_CONFIGURE=1
output=$work/output
staging=$output/host/arm-buildroot-linux-gnueabihf/sysroot target=$output/target
printf '%s\n' BR2_arm=y BR2_cortex_a9=y BR2_ARM_EABIHF=y BR2_ARM_ENABLE_VFP=y \
  BR2_ARM_FPU_VFPV3D16=y BR2_DL_DIR=\""$work/dl"\" BR2_PACKAGE_OVERRIDE_FILE=\""$work/local.mk"\" \
  BR2_TOOLCHAIN_EXTERNAL=y BR2_TOOLCHAIN_EXTERNAL_CUSTOM=y BR2_TOOLCHAIN_EXTERNAL_PREINSTALLED=y \
  BR2_TOOLCHAIN_EXTERNAL_PATH=\""$toolchain"\" \
  BR2_TOOLCHAIN_EXTERNAL_CUSTOM_PREFIX=\"arm-linux-gnueabihf\" BR2_TOOLCHAIN_EXTERNAL_GCC_12=y \
  BR2_TOOLCHAIN_EXTERNAL_HEADERS_6_1=y BR2_TOOLCHAIN_EXTERNAL_CUSTOM_GLIBC=y \
  BR2_TOOLCHAIN_EXTERNAL_CXX=y BR2_TOOLCHAIN_EXTERNAL_OPENMP=y \
  BR2_TOOLCHAIN_EXTERNAL_INET_RPC=n BR2_INIT_NONE=y BR2_SYSTEM_BIN_SH_NONE=y \
  BR2_PACKAGE_BUSYBOX=n BR2_TARGET_ROOTFS_TAR=n BR2_PACKAGE_ZELCLI=y \
  BR2_PACKAGE_ZELCLI_EXAMPLES=y >"$work/defconfig"
log make -C "$buildroot" O="$output" BR2_EXTERNAL="$source/buildroot" \
  BR2_DEFCONFIG="$work/defconfig" defconfig
grep -qx BR2_PACKAGE_ZELCLI=y "$output/.config" || fail "zelcli cannot be selected"
printf 'hello buildroot\nexit\n' >"$work/keys"

# Buildroot offers static-only builds with uClibc-ng or musl alone, which are
# not to be had offline here, so the static build sets BR2_STATIC_LIBS on
# make's command line over the glibc toolchain: the package infrastructure
# then configures zelcli as it would for such a toolchain, and the examples
# take the static library in (the C library stays shared).
for libraries in shared static; do
  options=() library=libzelcli.so.0
  if [ $libraries = static ]; then
    options=(BR2_STATIC_LIBS=y) library=libzelcli.a
    log make -C "$output" zelcli-dirclean
  fi
  log make -C "$output" zelcli "${options[@]}"
  (cd "$staging/usr" && ls include/zel/cli/cmd_line_interface.h include/zel/cli/console.h \
    lib/pkgconfig/zelcli.pc lib/cmake/zelcli/zelcliConfig.cmake "lib/$library" >/dev/null) ||
    fail "staging lacks a file ($libraries)"
  test -x "$target/usr/bin/device_shell" || fail "target has no device_shell ($libraries)"
  [ $libraries = static ] || test -e "$target/usr/lib/$library" || fail "target has no $library"
  said=$(qemu-arm -L "$target" "$target/usr/bin/minimal_shell" <"$work/keys")
  [[ $said == *"hello, buildroot"* ]] || fail "minimal_shell ($libraries) printed: $said"
  echo "ok: $libraries: usr/lib/$library, headers, zelcli.pc and the CMake package in" \
    "staging; example hosts in the target that run"
done
