#!/usr/bin/env bash
# Prepares what a Buildroot build of a package for 32-bit ARM needs on this
# machine offline, in WORK_DIR: toolchain/, Debian's cross compiler wrapped
# as a custom external toolchain, and standins/, Debian's sources of the
# host tools Buildroot would download (pkgconf and tar), named in local.mk;
# and toolchain.defconfig, the lines of a defconfig that use them for a
# Cortex-A9. A user with internet needs none of it.
#
#   buildroot-offline.sh WORK_DIR
set -euo pipefail
work=$1 toolchain=$1/toolchain standins=$1/standins
. "$(dirname "$0")/../../scripts/debian.conf"

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
  sed 's/^Types: deb$/Types: deb-src/' "$DEBIAN_APT_SOURCES" >"$standins/apt/src/debian.sources"
  apt=(apt-get -q -o Dir::Etc::SourceList=/dev/null -o Dir::Etc::SourceParts="$standins/apt/src"
    -o Dir::State::Lists="$standins/apt/lists" -o Dir::Cache="$standins/apt/cache"
    -o Debug::NoLocking=1)
  "${apt[@]}" update
  (cd "$standins" && "${apt[@]}" source --download-only pkgconf tar)
  for tool in pkgconf tar; do
    mkdir "$standins/$tool.new"
    tar xf "$standins/${tool}_"*.orig.tar.* -C "$standins/$tool.new" --strip-components=1
    mv "$standins/$tool.new" "$standins/$tool"
  done
fi
cat >"$work/local.mk" <<LOCAL
HOST_PKGCONF_OVERRIDE_SRCDIR = $standins/pkgconf
HOST_TAR_OVERRIDE_SRCDIR = $standins/tar
LOCAL

printf '%s\n' BR2_arm=y BR2_cortex_a9=y BR2_ARM_EABIHF=y BR2_ARM_ENABLE_VFP=y \
  BR2_ARM_FPU_VFPV3D16=y BR2_PACKAGE_OVERRIDE_FILE=\""$work/local.mk"\" \
  BR2_TOOLCHAIN_EXTERNAL=y BR2_TOOLCHAIN_EXTERNAL_CUSTOM=y BR2_TOOLCHAIN_EXTERNAL_PREINSTALLED=y \
  BR2_TOOLCHAIN_EXTERNAL_PATH=\""$toolchain"\" \
  BR2_TOOLCHAIN_EXTERNAL_CUSTOM_PREFIX=\"arm-linux-gnueabihf\" \
  "BR2_TOOLCHAIN_EXTERNAL_GCC_$DEBIAN_GCC=y" \
  "BR2_TOOLCHAIN_EXTERNAL_HEADERS_$DEBIAN_KERNEL_HEADERS=y" \
  BR2_TOOLCHAIN_EXTERNAL_CUSTOM_GLIBC=y \
  BR2_TOOLCHAIN_EXTERNAL_CXX=y BR2_TOOLCHAIN_EXTERNAL_OPENMP=y \
  BR2_TOOLCHAIN_EXTERNAL_INET_RPC=n >"$work/toolchain.defconfig"
