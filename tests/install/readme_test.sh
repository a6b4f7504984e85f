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
# The quick start's code blocks, in order: install.sh, hello.cc, run.sh; then
# the CMake way's, in a folder of its own: CMakeLists.txt and run.sh.
blocks=$(code_blocks '^(sh|cpp)$' "$home/block-" "$source/README.md" '## Quick start')
[ "$blocks" = "$(printf '%s\n' "$home"/block-{01.sh,02.cpp,03.sh})" ] ||
  fail "the quick start's code blocks are not sh, cpp, sh: $blocks"
mv "$home/block-01.sh" "$home/zelcli/install.sh"
mv "$home/block-02.cpp" "$home/zelcli/hello.cc"
mv "$home/block-03.sh" "$home/zelcli/run.sh"
mkdir "$home/hello"
blocks=$(code_blocks '^(sh|cmake)$' "$home/hello/block-" "$source/README.md" '**CMake**')
[ "$blocks" = "$(printf '%s\n' "$home"/hello/block-{01.cmake,02.sh})" ] ||
  fail "the README's CMake way's code blocks are not cmake, sh: $blocks"
mv "$home/hello/block-01.cmake" "$home/hello/CMakeLists.txt"
mv "$home/hello/block-02.sh" "$home/hello/run.sh"
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
