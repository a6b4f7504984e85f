#!/usr/bin/env bash
# Makes sure the Debian packages named as arguments are installed: as root it
# installs the missing ones, otherwise it prints the apt-get line and fails.
set -euo pipefail
if ! command -v dpkg-query >/dev/null; then
  echo "ensure-packages: not a Debian system; make sure these are present: $*" >&2
  exit 0
fi
missing=()
for package in "$@"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$package")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0
if [ "$(id -u)" -ne 0 ]; then
  echo "Missing Debian packages. Install them with:" >&2
  echo "  sudo apt-get install ${missing[*]}" >&2
  exit 1
fi
echo "Installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
