#!/usr/bin/env bash
# Makes the disk images of the example servers in a folder, from Debian's own loaders. What exists is kept.
# usage: make_disk_images.sh DIR [LOADER.efi]
#   DIR/system.img   GPT, one EFI system partition (FAT32): \EFI\debian\grubx64.efi, \EFI\systemd\systemd-bootx64.efi,
#                    \EFI\BOOT\BOOTX64.EFI
#   DIR/loader.img   the same kind of disk with the loader given as \EFI\BOOT\BOOTX64.EFI and \EFI\hello\hello.efi
#   DIR/data.img     MBR, one FAT16 partition without a loader
#   DIR/stick.img    MBR, one FAT16 partition with \EFI\BOOT\BOOTX64.EFI
#   DIR/floppy.img   a FAT12 volume of 1.44 MB without partitions, with \EFI\BOOT\BOOTX64.EFI
#   DIR/netboot.efi  a loader as a network server sends it
#   DIR/dvd.iso      ISO 9660 with an El Torito EFI boot image
#   DIR/server/*.img copies of system.img (raid, sas, nvme, san1, san2, iscsi, hba) and of stick.img (the others), each
#                    under identifiers of its own, so that a server can hold all of them
set -euo pipefail
dir=$1
loader=${2:-}
mkdir -p "$dir"

grub=/usr/lib/grub/x86_64-efi/monolithic/grubx64.efi
systemd_boot=/usr/lib/systemd/boot/efi/systemd-bootx64.efi
export MTOOLS_SKIP_CHECK=1

gpt_disk() { # image, disk GUID, partition GUID
  truncate -s 72M "$1"
  sgdisk --clear --disk-guid="$2" --new=1:2048:+68M --typecode=1:EF00 --partition-guid=1:"$3" \
    --change-name=1:"EFI system partition" "$1" >/dev/null
  mkfs.vfat -F 32 -n ESP -i 12345678 --offset 2048 "$1" $((68 * 1024)) >/dev/null 2>&1
  mmd -i "$1@@1M" ::/EFI ::/EFI/BOOT
}

mbr_disk() { # image, signature
  truncate -s 24M "$1"
  printf 'label: dos\nlabel-id: %s\nstart=2048, size=40960, type=e\n' "$2" | sfdisk --quiet "$1"
  mkfs.vfat -F 16 -n DATA -i 87654321 --offset 2048 "$1" $((20 * 1024)) >/dev/null 2>&1
}

finish() { mv "$1.new" "$1"; }

if [ ! -e "$dir/system.img" ]; then
  image=$dir/system.img.new
  gpt_disk "$image" 4D9A3C11-0001-4000-8000-000000000001 4D9A3C11-0001-4000-8000-000000000011
  mmd -i "$image@@1M" ::/EFI/debian ::/EFI/systemd
  mcopy -i "$image@@1M" "$grub" ::/EFI/debian/grubx64.efi
  mcopy -i "$image@@1M" "$systemd_boot" ::/EFI/systemd/systemd-bootx64.efi
  mcopy -i "$image@@1M" "$systemd_boot" ::/EFI/BOOT/BOOTX64.EFI
  finish "$dir/system.img"
fi

if [ -n "$loader" ] && { [ ! -e "$dir/loader.img" ] || [ "$loader" -nt "$dir/loader.img" ]; }; then
  image=$dir/loader.img.new
  rm -f "$image"
  gpt_disk "$image" 4D9A3C11-0002-4000-8000-000000000001 4D9A3C11-0002-4000-8000-000000000011
  mmd -i "$image@@1M" ::/EFI/hello
  mcopy -i "$image@@1M" "$loader" ::/EFI/BOOT/BOOTX64.EFI
  mcopy -i "$image@@1M" "$loader" ::/EFI/hello/hello.efi
  finish "$dir/loader.img"
fi

if [ ! -e "$dir/data.img" ]; then
  mbr_disk "$dir/data.img.new" 0x11223344
  finish "$dir/data.img"
fi

if [ ! -e "$dir/stick.img" ]; then
  image=$dir/stick.img.new
  mbr_disk "$image" 0x55667788
  mmd -i "$image@@1M" ::/EFI ::/EFI/BOOT
  mcopy -i "$image@@1M" "$systemd_boot" ::/EFI/BOOT/BOOTX64.EFI
  finish "$dir/stick.img"
fi

if [ ! -e "$dir/floppy.img" ]; then
  image=$dir/floppy.img.new
  truncate -s 1440K "$image"
  mkfs.vfat -F 12 -n FLOPPY -i 24681357 "$image" >/dev/null
  mmd -i "$image" ::/EFI ::/EFI/BOOT
  mcopy -i "$image" "$systemd_boot" ::/EFI/BOOT/BOOTX64.EFI
  finish "$dir/floppy.img"
fi

if [ ! -e "$dir/netboot.efi" ]; then
  cp "$systemd_boot" "$dir/netboot.efi.new"
  finish "$dir/netboot.efi"
fi

if [ ! -e "$dir/dvd.iso" ]; then
  tree=$(mktemp -d)
  trap 'rm -rf "$tree"' EXIT
  mkdir -p "$tree/boot"
  truncate -s 4M "$tree/boot/efi.img"
  mkfs.vfat -F 12 -n EFIBOOT -i 13572468 "$tree/boot/efi.img" >/dev/null
  mmd -i "$tree/boot/efi.img" ::/EFI ::/EFI/BOOT
  mcopy -i "$tree/boot/efi.img" "$systemd_boot" ::/EFI/BOOT/BOOTX64.EFI
  xorriso -as mkisofs -quiet -V BDS_DVD -eltorito-alt-boot -e boot/efi.img -no-emul-boot -o "$dir/dvd.iso.new" "$tree" 2>/dev/null
  finish "$dir/dvd.iso"
fi

# Identifiers are counted on: disk and partition GUIDs end in a copy's number, and so does an MBR's signature.
number=0
mkdir -p "$dir/server"
for name in raid sas nvme san1 san2 iscsi hba; do
  number=$((number + 1)) image=$dir/server/$name.img
  [ -e "$image" ] && continue
  cp --sparse=always "$dir/system.img" "$image.new"
  tail=$(printf '%012x' "$number")
  sgdisk --disk-guid="4D9A3C11-0003-4000-8000-$tail" --partition-guid=1:"4D9A3C11-0013-4000-8000-$tail" \
    "$image.new" >/dev/null
  finish "$image"
done
for name in front rear internal sd1 sd2 kvm bmc flash; do
  number=$((number + 1)) image=$dir/server/$name.img
  [ -e "$image" ] && continue
  cp --sparse=always "$dir/stick.img" "$image.new"
  sfdisk --quiet --disk-id "$image.new" "$(printf '0x5566%04x' "$number")"
  finish "$image"
done
