#!/bin/sh
# Makes a small disk image for a simulated server: GPT or MBR with a FAT system partition, a bare FAT volume, or a disc
# with an EFI boot image. Identifiers are given, so that the same call makes the same partitions. Needs sgdisk,
# mkfs.vfat, mtools and xorriso.
#
#   make_disk_image.sh gpt  IMAGE SIZE_MIB [--disk-guid G] [--part-guid G] [--fat 12|16|32] [--label L] [--no-esp]
#                           [SOURCE=TARGET ...]
#   make_disk_image.sh mbr  IMAGE SIZE_MIB [--disk-id 0x12345678] [--fat 12|16|32] [--label L] [--logical] [...]
#   make_disk_image.sh fat  IMAGE SIZE_MIB [--fat 12|16|32] [--label L] [...]
#   make_disk_image.sh iso  IMAGE SIZE_MIB [--fat 12|16|32] [--label L] [...]      SIZE_MIB: of the EFI boot image
#
# SOURCE=TARGET copies a host file to a path of the FAT volume ("loader.efi=EFI/BOOT/BOOTX64.EFI"); its folders are
# made. FAT32 needs a volume of 33 MiB or more.
set -eu
PATH=$PATH:/usr/sbin:/sbin

kind=$1 image=$2 size=$3
shift 3
disk_guid=0D15C0DE-0000-4000-8000-000000000001
part_guid=0D15C0DE-0000-4000-8000-000000000011
disk_id=0x0d15c0de
fat=32 label=SYSTEM esp=yes logical=no
while [ $# -gt 0 ]; do
  case $1 in
    --disk-guid) disk_guid=$2; shift 2 ;;
    --part-guid) part_guid=$2; shift 2 ;;
    --disk-id) disk_id=$2; shift 2 ;;
    --fat) fat=$2; shift 2 ;;
    --label) label=$2; shift 2 ;;
    --no-esp) esp=no; shift ;;
    --logical) logical=yes; shift ;;
    --*) echo "make_disk_image.sh: unknown option $1" >&2; exit 2 ;;
    *) break ;;
  esac
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export MTOOLS_SKIP_CHECK=1

# make_fat FILE MIB SOURCE=TARGET... : a FAT volume of its own in FILE
make_fat() {
  volume=$1 mib=$2
  shift 2
  rm -f "$volume"
  truncate -s "${mib}M" "$volume"
  mkfs.vfat -F "$fat" -n "$label" --invariant "$volume" > /dev/null
  for pair in "$@"; do
    target=${pair#*=} folder=
    rest=$target
    while [ "${rest#*/}" != "$rest" ]; do
      folder=$folder/${rest%%/*} rest=${rest#*/}
      mmd -i "$volume" -D s "::$folder" > /dev/null 2>&1 || true
    done
    mcopy -i "$volume" -o "${pair%%=*}" "::/$target"
  done
}

# bytes OFFSET COUNT VALUE : a little-endian integer into the image
bytes() {
  value=$3 left=$2 text=
  while [ "$left" -gt 0 ]; do
    text=$text$(printf '\\%03o' $((value & 255)))
    value=$((value >> 8)) left=$((left - 1))
  done
  printf "$text" | dd of="$image" bs=1 seek="$1" conv=notrunc status=none
}

# entry OFFSET TYPE FIRST COUNT : one MBR partition entry; the old cylinder fields say "beyond reach"
entry() {
  bytes "$1" 4 0xFFFFFE00
  bytes $(($1 + 4)) 4 $((0xFFFFFE00 | $2))
  bytes $(($1 + 8)) 4 "$3"
  bytes $(($1 + 12)) 4 "$4"
}

rm -f "$image"
case $kind in
  fat)
    make_fat "$image" "$size" "$@"
    ;;
  gpt | mbr)
    # The partition begins at 1 MiB and leaves the last MiB to the backup table.
    start=1 part=$((size - 2))
    [ "$logical" = no ] || { start=2 part=$((size - 3)); }
    make_fat "$work/volume" "$part" "$@"
    truncate -s "${size}M" "$image"
    if [ "$kind" = mbr ]; then
      type=0xef
      [ "$esp" = yes ] || type=0x0c
      first=$((start * 2048)) count=$((part * 2048))
      bytes 440 4 "$disk_id"
      if [ "$logical" = yes ]; then
        # An extended partition from 1 MiB on, whose table names one logical partition (number 5) 1 MiB behind it.
        entry 446 0x05 2048 $((count + 2048))
        entry $((1048576 + 446)) $type 2048 $count
        bytes $((1048576 + 510)) 2 0xAA55
      else
        entry 446 $type $first $count
      fi
      bytes 510 2 0xAA55
    else
      type=ef00
      [ "$esp" = yes ] || type=0700
      sgdisk --clear --disk-guid="$disk_guid" --new="1:$((start * 2048)):+$((part * 2048 - 1))" \
        --typecode=1:$type --partition-guid="1:$part_guid" --change-name="1:$label" "$image" > /dev/null
    fi
    dd if="$work/volume" of="$image" bs=1M seek=$start conv=notrunc,sparse status=none
    ;;
  iso)
    mkdir "$work/tree"
    make_fat "$work/tree/efiboot.img" "$size" "$@"
    printf 'A disc of the simulated server.\n' > "$work/tree/README.TXT"
    xorriso -as mkisofs -quiet -V "$label" -e efiboot.img -no-emul-boot -o "$image" "$work/tree" 2> /dev/null
    ;;
  *)
    echo "make_disk_image.sh: unknown kind $kind: expected gpt, mbr, fat or iso" >&2
    exit 2
    ;;
esac
