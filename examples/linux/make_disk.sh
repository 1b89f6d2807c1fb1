#!/usr/bin/env bash
# Makes the disk of an installed Debian, as far as its boot chain goes: GPT, one EFI system partition with shim, GRUB
# behind it, GRUB's menu, and a loader of this project's that the menu's first entry chain-loads.
# usage: make_disk.sh IMAGE PACKAGES LOADER.efi [--kernel]
#   PACKAGES  the folder that fetch_loaders.sh filled
#   --kernel  with the distribution's kernel, which the menu's first entry then starts
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
image=$1 packages=$2 loader=$3 kernel=${4:-}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
files=(
  "$packages/usr/lib/shim/shimx64.efi.signed=EFI/debian/shimx64.efi"
  "$packages/usr/lib/grub/x86_64-efi-signed/grubx64.efi.signed=EFI/debian/grubx64.efi"
  "/usr/lib/grub/x86_64-efi/monolithic/grubx64.efi=EFI/debian/unsigned.efi"
  "$loader=EFI/hello/hello.efi"
  "$work/grub.cfg=EFI/debian/grub.cfg"
)
if [ "$kernel" = --kernel ]; then
  # No kernel gets as far as unpacking it: the boot ends when the kernel takes the machine over.
  head -c 1M /dev/zero >"$work/initrd.img"
  files+=("$(compgen -G "$packages/boot/vmlinuz-*" | head -n 1)=vmlinuz" "$work/initrd.img=initrd.img")
fi

{
  echo 'set timeout=3'
  if [ "$kernel" = --kernel ]; then
    cat <<'MENU'
menuentry "Debian GNU/Linux" {
  linux /vmlinuz root=/dev/sda2 ro quiet
  initrd /initrd.img
}
MENU
  fi
  cat <<'MENU'
menuentry "Hello" {
  chainloader /EFI/hello/hello.efi
  boot
  exit
}
menuentry "Restart" { reboot }
menuentry "Power off" { halt }
MENU
} >"$work/grub.cfg"

"$here/../make_disk_image.sh" gpt "$image.new" 96 --label DEBIAN "${files[@]}"
mv "$image.new" "$image"
