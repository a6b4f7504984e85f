#!/usr/bin/env bash
# Makes sure the Debian packages of each PURPOSE (demo, check, ...: the lists
# of debian.conf) are installed: as root it installs the missing ones,
# otherwise it prints the apt-get line and fails. A name with an architecture
# (libfoo-dev:armhf) enables that architecture for multiarch first.
#
#   ensure-packages.sh PURPOSE...
set -euo pipefail
. "$(dirname "$0")/debian.conf"
wanted=()
for purpose in "$@"; do
  list=PACKAGES_${purpose//-/_}
  list=${list^^}
  [ -n "${!list:-}" ] || { echo "ensure-packages: no list $list in debian.conf" >&2; exit 1; }
  read -ra packages <<<"${!list}"
  wanted+=("${packages[@]}")
done
if ! command -v dpkg-query >/dev/null; then
  echo "ensure-packages: not a Debian system; make sure these are present: ${wanted[*]}" >&2
  exit 0
fi
missing=()
for package in "${wanted[@]}"; do
  # A multiarch package installed for several architectures has a status
  # line for each; any one installed will do. Captured, not piped into
  # grep -q, which under pipefail can fail the producer with SIGPIPE.
  status=$(dpkg-query -W -f='${Status}\n' "$package" 2>/dev/null || true)
  if ! grep -qx 'install ok installed' <<<"$status"; then
    missing+=("$package")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0
if [ "$(id -u)" -ne 0 ]; then
  echo "Missing Debian packages. Installing them is the one step that needs root:" >&2
  echo "  sudo apt-get install ${missing[*]}" >&2
  echo "(sudo make packages installs everything make check needs)" >&2
  exit 1
fi
echo "Installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
for package in "${missing[@]}"; do
  case "$package" in
    *:*)
      arch="${package##*:}"
      if ! grep -qx "$arch" <<<"$(dpkg --print-foreign-architectures)" &&
        [ "$arch" != "$(dpkg --print-architecture)" ]; then
        dpkg --add-architecture "$arch"
      fi
      ;;
  esac
done
# An index that fails to download (a mirror in mid-sync) leaves the others
# usable; the install below fails if what it needs is not there.
apt-get update -qq || echo "ensure-packages: apt-get update reported errors" >&2
apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
