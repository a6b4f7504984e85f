# shellcheck shell=bash
# Sourced by the shell tests: fail, and the folder of the test harness.
support=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

fail() {
  echo "FAILED: $*" >&2
  exit 1
}

# code_blocks INFO PREFIX FILE [PART]: see code_blocks.awk.
code_blocks() {
  awk -v info="$1" -v prefix="$2" -v part="${4:-}" -f "$support/code_blocks.awk" "$3"
}
