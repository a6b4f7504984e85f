#!/usr/bin/env bash
# Copies a checkout as a user's clone with their uncommitted work has it: the
# tracked and the new files, and .git, without the build trees that
# .gitignore names.
#
#   copy_checkout.sh SOURCE_DIR DESTINATION
set -euo pipefail
rm -rf "$2"
mkdir -p "$2"
(cd "$1" && { git ls-files -co --exclude-standard -z; printf '.git\0'; } |
  tar --null -T - -cf -) | tar -xf - -C "$2"
