#!/usr/bin/env bash
# Configures, builds and installs zelcli on a machine without dpkg, then moves
# the installed tree and builds and runs a product's host against it
# (consumer.sh): moving it proves that neither package file remembers where
# it was installed. Every dpkg program is hidden by whiteouts over /usr/bin
# and /usr/sbin in a mount namespace of a user namespace, so that neither
# PATH nor CMake's own program search finds one. Needs no root.
#
#   install_test.sh SOURCE_DIR [CMAKE_ARGUMENT...]
set -euo pipefail
if [ "${1:-}" != --inside ]; then
  exec unshare --map-root-user --mount "$0" --inside "$(cd "$1" && pwd)" "${@:2}"
fi
source=$2
. "$source/tests/install/consumer.sh"

for dir in /usr/bin /usr/sbin; do
  mkdir -p "$work$dir/upper" "$work$dir/work"
  for program in "$dir"/dpkg*; do mknod "$work$dir/upper/${program##*/}" c 0 0; done
  mount -t overlay overlay -o "lowerdir=$dir,upperdir=$work$dir/upper,workdir=$work$dir/work" "$dir"
done
if command -v dpkg dpkg-deb dpkg-query dpkg-architecture; then fail "dpkg is still there"; fi

cmake -S "$source" -B "$work/build" -DCMAKE_BUILD_TYPE=Release -DZELCLI_BUILD_EXAMPLES=ON \
  "${@:3}" >"$work/log" &&
  grep -x -- '-- Debian packages not available: no dpkg on this machine' "$work/log" &&
  cmake --build "$work/build" >"$work/log" || { cat "$work/log"; fail "configure and build"; }
# make deb's first step, the deb preset's configure, must stop and say why.
if (cd "$source" && cmake --preset deb -B "$work/deb") >"$work/log" 2>&1; then
  fail "the deb preset configured"
fi
grep 'Debian packages not available: no dpkg' "$work/log" || { cat "$work/log"; fail "make deb"; }

cmake --install "$work/build" --prefix "$work/installed" >/dev/null
mv "$work/installed" "$work/moved"
test -f "$work/moved/share/doc/zelcli/LICENSE" || fail "no LICENSE in share/doc/zelcli"
test -x "$work/moved/bin/device_shell" || fail "no device_shell in bin"
# From a file: a pipe whose writer has gone is never read again.
printf 'hello moved\nexit\n' >"$work/keys"
said=$("$work/moved/bin/minimal_shell" <"$work/keys" 2>&1) &&
  [[ $said == *"hello, moved"* ]] || fail "the installed minimal_shell, moved, said: $said"
PKG_CONFIG_PATH=$(dirname "$(find "$work/moved" -name zelcli.pc)")
export PKG_CONFIG_PATH
build_consumers installed c++ "-DCMAKE_PREFIX_PATH=$work/moved"
