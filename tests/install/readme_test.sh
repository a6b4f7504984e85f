#!/usr/bin/env bash
# Follows the README's quick start as written, as a new user whose home is a
# temporary folder: its install lines from the top of a copy of the
# checkout, then hello.cc built with its lines and run, typing a command and
# exit; then hello.cc built and run the README's CMake way. Run by root, it
# runs as nobody, who can write nothing outside that home, so a line that
# needs root fails here too.
#
#   readme_test.sh SOURCE_DIR
set -euo pipefail
source=$(cd "$1" && pwd)
. "$source/tests/support/lib.sh"
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT

"$support/copy_checkout.sh" "$source" "$home/zelcli"
# take_blocks PART LANGUAGES DIR NAME...: the code blocks of the README's PART,
# which must be in LANGUAGES one after the other, as DIR/NAME each.
take_blocks() {
  local part=$1 languages=$2 dir=$3 block found=()
  shift 3
  mapfile -t blocks < <(code_blocks . "$home/block-" "$source/README.md" "$part")
  for block in "${blocks[@]}"; do found+=("${block##*.}"); done
  [ "${found[*]}" = "$languages" ] || fail "$part: code blocks in ${found[*]}, not $languages"
  for block in "${blocks[@]}"; do mv "$block" "$dir/$1" && shift; done
}
take_blocks '## Quick start' 'sh cpp sh' "$home/zelcli" install.sh hello.cc run.sh
mkdir "$home/hello"
take_blocks '**CMake**' 'cmake sh' "$home/hello" CMakeLists.txt run.sh
cp "$home/zelcli/hello.cc" "$home/hello/"

as_user=()
if [ "$(id -u)" -eq 0 ]; then
  chown -R nobody: "$home"
  chmod 755 "$home"
  as_user=(runuser -u nobody --)
fi
printf 'hello you\nexit\n' >"$home/keys"
said=$("${as_user[@]}" env -i HOME="$home" PATH=/usr/bin:/bin bash -c \
  'cd ~/zelcli && bash -e install.sh >install.log && bash -e run.sh <~/keys' 2>&1) ||
  fail "the quick start: $said"$'\n'"$(cat "$home/zelcli/install.log" 2>/dev/null)"
[[ $said == *"hello, you"* ]] || fail "hello printed: $said"
[ ! -e "$home/.local/bin" ] || fail "the install put programs into bin/: $(ls "$home/.local/bin")"
said=$("${as_user[@]}" env -i HOME="$home" PATH=/usr/bin:/bin bash -c \
  'cd ~/hello && bash -e run.sh <~/keys' 2>&1) || fail "the CMake way: $said"
[[ $said == *"hello, you"* ]] || fail "hello, built with CMake, printed: $said"
echo "ok: the README's quick start, installed into ~/.local as an ordinary user:" \
  "hello ran, and nothing went into bin/; hello built the CMake way ran too"
