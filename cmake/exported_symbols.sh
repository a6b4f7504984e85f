#!/bin/sh
# Prints the symbols a shared library exports, demangled and sorted, as
# zelcli.symbols lists them: exported_symbols.sh NM LIBRARY
set -e
"$1" -D --defined-only -C "$2" | cut -d' ' -f3- | LC_ALL=C sort -u
