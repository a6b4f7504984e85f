#!/usr/bin/env bash
# Adds the meta-zelcli layer to a Yocto build of each release series whose
# bitbake, OE-Core and meta-oe archives are in YOCTO_DIR, offline, and checks
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
yocto=$(cd "$1" && pwd) source=$(cd "$2" && pwd)
mkdir -p "$3"
work=$(cd "$3" && pwd)
fail() { echo "FAILED: $*" >&2; exit 1; }

# The layer is tried in a copy of the checkout (tracked and new files, and
# .git, as a user's clone has them), since externalsrc records a hash of the
# tree in .git. bitbake refuses to run as root, so as root the copy and the
# build directories are handed to nobody, who runs bitbake.
rm -rf "$work/src"
mkdir "$work/src"
(cd "$source" && { git ls-files -co --exclude-standard -z; printf '.git\0'; } |
  tar --null -T - -cf -) | tar -xf - -C "$work/src"
as_user() { "$@"; }
if [ "$(id -u)" -eq 0 ]; then
  chown -R nobody: "$work"
  as_user() { runuser -u nobody -- "$@"; }
fi
recipe=$(echo "$work"/src/meta-zelcli/recipes-support/zelcli/zelcli_*.bb)
license_md5=$(md5sum <"$source/LICENSE" | cut -d' ' -f1)

# bitbake ARGS... in the series' build directory; prints what it printed.
bitbake_in() {
  local series=$1
  shift
  as_user env -i HOME="$work" PATH=/usr/bin:/bin LANG=en_US.UTF-8 bash -c \
    'cd "$1" && BITBAKEDIR="$PWD/bitbake" . ./openembedded-core/oe-init-build-env build \
       >/dev/null && shift && "$@"' - "$work/$series" "$@" 2>&1
}
# The value of VAR in bitbake -e's output.
value() { sed -n "s/^$1=\"\(.*\)\"$/\1/p" <<<"$2"; }
expect() { # NAME ACTUAL EXPECTED
  [ "$2" = "$3" ] || fail "$series: $1 is '$2', expected '$3'"
}
has_words() { # NAME VALUE WORD...
  local name=$1 words=" $2 "
  shift 2
  for word; do [[ $words == *" $word "* ]] || fail "$series: $name '${words# }' lacks $word"; done
}

for archive in "$yocto"/bitbake-*.tar.xz; do
  case ${archive##*/} in
    bitbake-2.8.tar.xz) series=scarthgap ;;
    bitbake-2.18.tar.xz) series=wrynose ;;
    *) fail "no release series known for ${archive##*/}" ;;
  esac
  dir=$work/$series started=$SECONDS
  if [ ! -d "$dir/meta-oe" ]; then
    as_user mkdir -p "$dir/new"
    as_user tar -xf "$archive" -C "$dir/new"
    as_user tar -xf "$yocto/openembedded-core-$series.tar.xz" -C "$dir/new"
    as_user tar -xf "$yocto/meta-oe-$series.tar.xz" -C "$dir/new"
    as_user mv "$dir/new/$(basename "$archive" .tar.xz)" "$dir/bitbake"
    as_user mv "$dir/new/openembedded-core-$series" "$dir/openembedded-core"
    as_user mv "$dir/new/meta-openembedded-$series/meta-oe" "$dir/meta-oe"
    as_user rm -rf "$dir/new"
  fi
  # meta-oe is there for googletest; masking its other recipes saves most
  # of a cold parse. Offline, wrynose's uninative cannot download its loader
  # and warns; an offline build goes without it.
  as_user mkdir -p "$dir/build/conf"
  as_user tee "$dir/build/conf/bblayers.conf" >/dev/null <<CONF
BBPATH = "\${TOPDIR}"
BBFILES ?= ""
BBLAYERS = "$dir/openembedded-core/meta $dir/meta-oe $work/src/meta-zelcli"
CONF
  as_user tee "$dir/build/conf/local.conf" >/dev/null <<CONF
MACHINE = "qemuarm"
BB_NO_NETWORK = "1"
DISTRO_FEATURES:append = " ptest"
BBMASK += "/meta-oe/(?!recipes-test/googletest/)"
INHERIT:remove = "uninative"
CONF
  echo 'DISTRO_FEATURES:remove = "ptest"' | as_user tee "$dir/build/conf/ptest-off.conf" >/dev/null

  output=$(bitbake_in $series bitbake-layers show-layers) || fail "$series: show-layers: $output"
  grep -q "^zelcli  *$work/src/meta-zelcli " <<<"$output" || fail "$series: layers: $output"

  output=$(bitbake_in $series bitbake -p) || fail "$series: parse: $output"
  ! grep -E '^(WARNING|ERROR):' <<<"$output" || fail "$series: the parse warned"

  output=$(bitbake_in $series bitbake -e zelcli) || fail "$series: bitbake -e: $output"
  expect EXTERNALSRC "$(value EXTERNALSRC "$output")" "$work/src"
  expect S "$(value S "$output")" "$work/src"
  expect SRC_URI "$(value SRC_URI "$output")" "file://run-ptest"
  expect LIC_FILES_CHKSUM "$(value LIC_FILES_CHKSUM "$output")" "file://LICENSE;md5=$license_md5"
  has_words PACKAGES "$(value PACKAGES "$output")" zelcli zelcli-dev zelcli-ptest zelcli-examples
  has_words FILES:zelcli-examples "$(value FILES:zelcli-examples "$output")" \
    /usr/bin/minimal_shell /usr/bin/device_shell
  ptest_path=$(value PTEST_PATH "$output")
  has_words FILES:zelcli-ptest "$(value FILES:zelcli-ptest "$output")" "$ptest_path"
  grep -q "install .*/tests/zelcli_tests .*$ptest_path" <<<"$output" ||
    fail "$series: do_install_ptest does not install zelcli_tests into $ptest_path"
  has_words EXTRA_OECMAKE "$(value EXTRA_OECMAKE "$output")" -DZELCLI_BUILD_TESTS=ON \
    -DZELCLI_BUILD_EXAMPLES=OFF
  has_words DEPENDS "$(value DEPENDS "$output")" googletest

  output=$(bitbake_in $series bitbake -R conf/ptest-off.conf -e -b "$recipe") ||
    fail "$series: bitbake -e with ptest off: $output"
  has_words EXTRA_OECMAKE "$(value EXTRA_OECMAKE "$output")" -DZELCLI_BUILD_TESTS=OFF
  [[ " $(value DEPENDS "$output") " != *" googletest "* ]] ||
    fail "$series: googletest in DEPENDS with ptest off"

  # The README's lines that pin a release, with this checkout's commit.
  sed -n '/^```conf pinned-release$/,/^```$/p' "$work/src/meta-zelcli/README.md" | sed '1d;$d' |
    sed "s/<the release's commit>/$(git -C "$source" rev-parse HEAD)/" |
    as_user tee "$dir/build/conf/pinned.conf" >/dev/null
  output=$(bitbake_in $series bitbake -R conf/pinned.conf -e -b "$recipe") ||
    fail "$series: bitbake -e with a pinned release: $output"
  expect EXTERNALSRC "$(value EXTERNALSRC "$output")" ""
  expect SRCREV "$(value SRCREV "$output")" "$(git -C "$source" rev-parse HEAD)"
  # The checkout is unpacked where the recipe looks for its source.
  destsuffix=$(value SRC_URI "$output" | grep -o 'git://[^ ]*' | grep -o 'destsuffix=[^;]*') ||
    fail "$series: no git URL with a destsuffix in the pinned SRC_URI"
  unpackdir=$(value UNPACKDIR "$output")
  expect S "$(value S "$output")" "${unpackdir:-$(value WORKDIR "$output")}/${destsuffix#*=}"

  output=$(bitbake_in $series bitbake -n zelcli) || fail "$series: bitbake -n: $output"
  ! grep -E '^(WARNING|ERROR):' <<<"$output" || fail "$series: the dry run warned"
  echo "ok: $series: layers, parse, recipe variables (ptest on, off, pinned), dry run:" \
    "$(grep -o 'Attempted [0-9]* tasks' <<<"$output"), $((SECONDS - started)) s"
done
