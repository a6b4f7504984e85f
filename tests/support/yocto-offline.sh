#!/usr/bin/env bash
# Lays out a Yocto build of one release series that works offline here, from
# the archives of bitbake, OE-Core and meta-oe in YOCTO_DIR: the three
# unpacked into DIR (once), and DIR/build/conf for qemuarm with ptest on, no
# network, and LAYER added after OE-Core and meta-oe. meta-oe is there for
# googletest; masking its other recipes saves most of a cold parse. Offline,
# wrynose's uninative cannot download its loader and warns, so the build goes
# without it. Then, from DIR: BITBAKEDIR=$PWD/bitbake
# . openembedded-core/oe-init-build-env build
#
#   yocto-offline.sh YOCTO_DIR SERIES BITBAKE_ARCHIVE DIR LAYER
set -euo pipefail
yocto=$1 series=$2 bitbake=$3 dir=$4 layer=$5
if [ ! -d "$dir/meta-oe" ]; then
  mkdir -p "$dir/bitbake" "$dir/openembedded-core"
  tar -xf "$yocto/$bitbake.tar.xz" -C "$dir/bitbake" --strip-components=1
  tar -xf "$yocto/openembedded-core-$series.tar.xz" -C "$dir/openembedded-core" \
    --strip-components=1
  tar -xf "$yocto/meta-oe-$series.tar.xz" -C "$dir" --strip-components=1
fi
mkdir -p "$dir/build/conf"
cat >"$dir/build/conf/bblayers.conf" <<CONF
BBPATH = "\${TOPDIR}"
BBFILES ?= ""
BBLAYERS = "$dir/openembedded-core/meta $dir/meta-oe $layer"
CONF
cat >"$dir/build/conf/local.conf" <<CONF
MACHINE = "qemuarm"
BB_NO_NETWORK = "1"
DISTRO_FEATURES:append = " ptest"
BBMASK += "/meta-oe/(?!recipes-test/googletest/)"
INHERIT:remove = "uninative"
CONF
