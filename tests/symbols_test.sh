#!/usr/bin/env bash
# Compares the symbols that a built libzelcli.so exports with the checked-in
# list. Hosts link against exactly these names, so a changed signature, or a
# member gained or lost, must be a decision and not an accident.
#
#   symbols_test.sh NM LIBRARY LIST            fails on any difference
#   symbols_test.sh NM LIBRARY LIST --update   rewrites LIST (make symbols)
set -euo pipefail
nm=$1
library=$2
list=$3

# Constructors and destructors are exported twice under one demangled name.
exported=$("$nm" -D --defined-only -C "$library" | cut -d' ' -f3- | LC_ALL=C sort -u)
if [ "${4:-}" = --update ]; then
  {
    echo "# Every symbol libzelcli.so exports, demangled, one per line."
    echo "# Checked by make check; regenerate on purpose with: make symbols"
    echo "$exported"
  } >"$list"
  exit 0
fi
if ! diff -u --label "$list" --label "$library" <(grep -v '^#' "$list") - <<<"$exported"; then
  echo "FAILED: the exported symbols differ from $list (- listed, + exported)." >&2
  echo "If the interface is meant to change, run: make symbols" >&2
  exit 1
fi
echo "ok: $(wc -l <<<"$exported") exported symbols as listed"
