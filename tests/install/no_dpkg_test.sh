#!/usr/bin/env bash
# Configures, builds and installs zelcli on a machine without dpkg, and builds
# and runs a product's host against the installed tree: every dpkg program is
# hidden by whiteouts over /usr/bin and /usr/sbin, in a mount namespace of a
# user namespace, so that neither PATH nor CMake's own program search can find
# it. Needs no root.
#
#   no_dpkg_test.sh SOURCE_DIR
set -euo pipefail
if [ "${1:-}" != --inside ]; then
  exec unshare --map-root-user --mount "$0" --inside "$(cd "$1" && pwd)"
fi
source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAILED: $*" >&2; exit 1; }

for dir in /usr/bin /usr/sbin; do
  mkdir -p "$work$dir/upper" "$work$dir/work"
  for program in "$dir"/dpkg*; do
    mknod "$work$dir/upper/${program##*/}" c 0 0
  done
  mount -t overlay overlay -o "lowerdir=$dir,upperdir=$work$dir/upper,workdir=$work$dir/work" "$dir"
done
if command -v dpkg dpkg-deb dpkg-query dpkg-architecture; then fail "dpkg is still there"; fi

cmake -S "$source" -B "$work/build" -DCMAKE_BUILD_TYPE=Release >"$work/configure.log" ||
  { cat "$work/configure.log"; fail "configure"; }
grep -x -- '-- Debian packages not available: .*' "$work/configure.log" ||
  fail "configure did not say that the Debian packages are not available"
cmake --build "$work/build" -j2 >"$work/build.log" || { cat "$work/build.log"; fail "build"; }
if make -C "$source" BUILD="$work/make" deb >"$work/deb.log" 2>&1; then fail "make deb passed"; fi
grep 'Debian packages not available' "$work/deb.log" || { cat "$work/deb.log"; fail "make deb"; }
"$source/tests/install/install_test.sh" "$work/build" "$source" c++
