#!/usr/bin/env bash
# Installs what a fresh Debian 12 lacks for building, testing and the main job.
# When everything is there it asks nothing of anybody, the network included.
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config git          # the host programs
  g++-mingw-w64-x86-64-win32                    # the EFI image
  libtsk-dev zlib1g-dev libtomlplusplus-dev libcli11-dev nlohmann-json3-dev libfmt-dev
  libexpat1-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  libexpat1-dev libpugixml-dev                  # what the tokenizer is measured against
  gdisk fdisk dosfstools mtools xorriso              # disk images
  systemd-boot-efi grub-efi-amd64-bin           # real loaders for the disk images
  efibootmgr libxml2-utils python3 python3-jsonschema binutils  # outside judges
  openipmi libopenipmi-dev ipmitool             # a BMC simulator and an operator's tool
)

missing=()
for package in "${packages[@]}"; do
  if [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" != installed ]; then
    missing+=("$package")
  fi
done
# The signed loaders of examples/linux are unpacked, not installed; without them their test is skipped.
fetch_loaders() {
  examples/linux/fetch_loaders.sh build/linux-packages || echo "The signed loaders could not be downloaded" >&2
}
cd "$(dirname "$0")/.."
if [ ${#missing[@]} -eq 0 ]; then
  fetch_loaders
  exit 0
fi

echo "Installing: ${missing[*]}"
as_root=()
[ "$(id -u)" -eq 0 ] || as_root=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fetch_loaders
