#!/usr/bin/env bash
# Boots the servers of examples/ as a user would: twice with the linked driver and, when the image is there, once with
# the image on what the first boot left. Each starts what the table says; the later boots change no boot option and
# start the same one; nothing leaks and nothing misuses a service.
#   boot_examples.sh SOURCE_DIR BDS_SIM EXAMPLE     one example, by name
#   boot_examples.sh SOURCE_DIR BDS_SIM --complete  every example stands in the table
# BDS_IMAGE names another image than build/efi/bds.efi.
# Exit status: 0 right, 1 wrong, 77 the tools that make disk images are missing.
set -euo pipefail
source=$1
sim=$2
example=$3
image=${BDS_IMAGE:-$source/build/efi/bds.efi}

# Name, exit status of bds-sim (0 started, 1 nothing started), what starts (a part of its name or path).
table='
rack_server         0  SIM SSD 480G
standalone_uefi     0  Built-in EFI Shell
standalone_legacy   0  SIM SSD 480G
managed_server      0  debian
managed_legacy      0  SIM SSD 480G
health_failed       0  debian
legacy_video        0  SIM SSD 480G
'

fail() {
  echo "$example: $*" >&2
  exit 1
}

if [ "$example" = --complete ]; then
  for file in "$source"/examples/*.toml; do
    name=$(basename "$file" .toml)
    # A BMC of its own process is another test's.
    grep -q 'ipmi *= *"vm://' "$file" && continue
    grep -q "^$name " <<<"$table" || fail "$name is not in the table"
  done
  exit 0
fi

for tool in mmd mcopy mkfs.vfat sgdisk sfdisk xorriso; do
  PATH=$PATH:/usr/sbin:/sbin command -v "$tool" >/dev/null || { echo "$tool is missing" >&2; exit 77; }
done
export PATH=$PATH:/usr/sbin:/sbin

read -r _ status starts <<<"$(grep "^$example " <<<"$table")" || fail "is not in the table"
disks=$source/build/run/disks
mkdir -p "$disks"
exec 9>"$disks/.lock"
flock 9
"$source/tools/make_disk_images.sh" "$disks" 9>&-
exec 9>&-

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
state=$work/state
"$source/tools/installer_nvram.py" "$state/nvram" "$disks/system.img" 0000 debian '\EFI\debian\grubx64.efi'

boot_options() { (cd "$state/nvram" && sha256sum Boot[0-9A-F][0-9A-F][0-9A-F][0-9A-F]-* BootOrder-*); }

boot() { # name, further arguments
  local ended=0
  "$sim" boot "$source/examples/$example.toml" --quiet --state "$state" --json "$work/$1.json" "${@:2}" \
    >"$work/$1.log" 2>&1 </dev/null || ended=$?
  if [ "$ended" != "$status" ]; then
    cat "$work/$1.log" >&2
    fail "boot '$1' ended with $ended, not $status"
  fi
  boot_options >"$work/$1.options"
}

boots=(first second)
boot first
boot second
if [ -e "$image" ]; then
  boot image --image "$image"
  boots+=(image)
else
  echo "the image is not built: only the linked driver was booted"
fi

for name in "${boots[@]:1}"; do
  diff "$work/first.options" "$work/$name.options" >&2 || fail "boot '$name' changed boot options"
done
python3 "$source/tests/example_boots/compare_reports.py" "$starts" "${boots[@]/#/$work/}" || fail "see above"
