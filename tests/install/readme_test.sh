#!/usr/bin/env bash
# Follows the README's quick start as written, as a new user whose home is a
# temporary folder: its install lines from the top of a copy of the
# checkout, then hello.cc built with its lines and run, typing a command and
# exit; then hello.cc built and run the README's CMake way. Run by root, it runs as nobody, who can write nothing outside that
# home, so a line that needs root fails here too.
#
#   readme_test.sh SOURCE_DIR
set -euo pipefail
source=$(cd "$1" && pwd)
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
fail() { echo "FAILED: $*" >&2; exit 1; }

"$source/tests/copy_checkout.sh" "$source" "$home/zelcli"
# The quick start's code blocks, in order: install.sh, hello.cc, run.sh; then
# the CMake way's, in a folder of its own: CMakeLists.txt and run.sh.
mkdir "$home/hello"
awk -v quick_dir="$home/zelcli" -v cmake_dir="$home/hello" '
  /^## / { quick = ($0 == "## Quick start") }
  /^\*\*/ { cmake = ($0 ~ /^\*\*CMake\*\*/) }
  quick && /^```(sh|cpp)$/ {
    file = quick_dir "/" ($0 == "```cpp" ? "hello.cc" : ++scripts == 1 ? "install.sh" : "run.sh")
    next
  }
  cmake && /^```(sh|cmake)$/ {
    file = cmake_dir "/" ($0 == "```cmake" ? "CMakeLists.txt" : "run.sh")
    next
  }
  /^```$/ { file = "" }
  file { print >file }' "$source/README.md"
[ -s "$home/hello/CMakeLists.txt" ] && [ -s "$home/hello/run.sh" ] ||
  fail "the README's CMake way has no cmake or sh block"
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
