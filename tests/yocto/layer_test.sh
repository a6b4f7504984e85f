#!/usr/bin/env bash
# Adds the meta-zelcli layer to a Yocto build of each release series of
# debian.conf's YOCTO_SERIES, whose bitbake, OE-Core and meta-oe archives are
# in YOCTO_DIR, offline, and checks
# what a product's build meets: the layer list, a parse of the whole build
# with neither error nor warning, the recipe's final variables with ptest on
# and off and with a release pinned as the layer's README says, and a dry run
# of `bitbake zelcli` in which every task's dependencies resolve. A real
# build needs OE's toolchain built from downloaded sources; what the recipe's
# tasks run (its CMake build, install and run-ptest) is checked outside
# bitbake by check-portable and check-board.
#
#   layer_test.sh YOCTO_DIR SOURCE_DIR WORK_DIR
set -euo pipefail
source=$(cd "$2" && pwd)
. "$source/tests/support/lib.sh"
[ -d "$1" ] || fail "no folder '$1': YOCTO names the folder of the Yocto archives, absolute"
yocto=$(cd "$1" && pwd)
mkdir -p "$3"
work=$(cd "$3" && pwd)
. "$source/scripts/debian.conf"

# The layer is tried in a copy of the checkout, since externalsrc records a
# hash of the tree in its .git. bitbake refuses to run as root, so as root it
# runs as an ordinary user of a user namespace of its own, to whom the files
# of root look like their own.
"$support/copy_checkout.sh" "$source" "$work/src"
as_user=()
[ "$(id -u)" -ne 0 ] || as_user=(unshare --map-user=1000 --map-group=1000)
recipe=$(echo "$work"/src/meta-zelcli/recipes-support/zelcli/zelcli_*.bb)
license_md5=$(md5sum <"$source/LICENSE" | cut -d' ' -f1)

# bitbake ARGS... in the series' build directory; prints what it printed.
bitbake_in() {
  local series=$1
  shift
  "${as_user[@]}" env -i HOME="$work" PATH=/usr/bin:/bin LANG=en_US.UTF-8 bash -c \
    'cd "$1" && BITBAKEDIR="$PWD/bitbake" . ./openembedded-core/oe-init-build-env build \
       >/dev/null && shift && "$@"' - "$work/$series" "$@" 2>&1
}
# The value of VAR in bitbake -e's output, and what it must be.
value() { sed -n "s/^$1=\"\(.*\)\"$/\1/p" <<<"$output"; }
expect() { [ "$(value "$1")" = "$2" ] || fail "$series: $1 is '$(value "$1")', expected '$2'"; }
has_words() { # VAR WORD...
  local var=$1
  shift
  for word; do [[ " $(value "$var") " == *" $word "* ]] || fail "$series: $var lacks $word"; done
}

for series_bitbake in $YOCTO_SERIES; do
  series=${series_bitbake%:*} dir=$work/${series_bitbake%:*} started=$SECONDS
  "$support/yocto-offline.sh" "$yocto" $series ${series_bitbake#*:} "$dir" \
    "$work/src/meta-zelcli"
  echo 'DISTRO_FEATURES:remove = "ptest"' >"$dir/build/conf/ptest-off.conf"

  output=$(bitbake_in $series bitbake-layers show-layers) || fail "$series: show-layers: $output"
  grep -q "^zelcli  *$work/src/meta-zelcli " <<<"$output" || fail "$series: layers: $output"

  output=$(bitbake_in $series bitbake -p) || fail "$series: parse: $output"
  ! grep -E '^(WARNING|ERROR):' <<<"$output" || fail "$series: the parse warned"

  output=$(bitbake_in $series bitbake -e zelcli) || fail "$series: bitbake -e: $output"
  expect EXTERNALSRC "$work/src"
  expect SRC_URI "file://run-ptest"
  expect LIC_FILES_CHKSUM "file://LICENSE;md5=$license_md5"
  has_words PACKAGES zelcli zelcli-dev zelcli-ptest zelcli-examples
  has_words FILES:zelcli-examples \
    /usr/bin/minimal_shell /usr/bin/device_shell
  ptest_path=$(value PTEST_PATH)
  has_words FILES:zelcli-ptest "$ptest_path"
  grep -q "install .*/tests/zelcli_tests .*$ptest_path" <<<"$output" ||
    fail "$series: do_install_ptest does not install zelcli_tests into $ptest_path"
  has_words EXTRA_OECMAKE -DZELCLI_BUILD_TESTS=ON \
    -DZELCLI_BUILD_EXAMPLES=OFF

  output=$(bitbake_in $series bitbake -R conf/ptest-off.conf -e -b "$recipe") ||
    fail "$series: bitbake -e with ptest off: $output"
  has_words EXTRA_OECMAKE -DZELCLI_BUILD_TESTS=OFF

  # The README's lines that pin a release, with this checkout's commit.
  commit=$(git -C "$source" rev-parse HEAD)
  [ "$(code_blocks '^conf pinned-release$' "$dir/pinned-" "$work/src/meta-zelcli/README.md")" = \
    "$dir/pinned-01.conf" ] || fail "the layer's README has no one conf pinned-release block"
  sed "s/<the release's commit>/$commit/" "$dir/pinned-01.conf" >"$dir/build/conf/pinned.conf"
  output=$(bitbake_in $series bitbake -R conf/pinned.conf -e -b "$recipe") ||
    fail "$series: bitbake -e with a pinned release: $output"
  expect EXTERNALSRC ""
  expect SRCREV "$commit"
  # The checkout is unpacked where the recipe looks for its source.
  destsuffix=$(value SRC_URI | grep -o 'git://[^ ]*' | grep -o 'destsuffix=[^;]*') ||
    fail "$series: no git URL with a destsuffix in the pinned SRC_URI"
  unpackdir=$(value UNPACKDIR)
  expect S "${unpackdir:-$(value WORKDIR)}/${destsuffix#*=}"

  output=$(bitbake_in $series bitbake -n zelcli) || fail "$series: bitbake -n: $output"
  ! grep -E '^(WARNING|ERROR):' <<<"$output" || fail "$series: the dry run warned"
  echo "ok: $series: layers, parse, recipe variables (ptest on, off, pinned), dry run:" \
    "$(grep -o 'Attempted [0-9]* tasks' <<<"$output"), $((SECONDS - started)) s"
done
