#!/usr/bin/env bash
# Boots Debian's own chain up to the kernel: shim, GRUB, its menu entry, ExitBootServices; and the kernel's EFI stub
# started by the firmware. With the linked driver and with the EFI image.
# Downloads (with apt-get download, into build/linux-packages, once): shim-signed, grub-efi-amd64-signed and the kernel
# that linux-image-amd64 stands for, about 70 MB. Nothing is installed.
set -euo pipefail
cd "$(dirname "$0")/../.."
packages=build/linux-packages
examples/linux/fetch_loaders.sh "$packages" --kernel

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
sed 's|image = .*|image = "disk.img"|' examples/linux/server.toml >"$work/server.toml"
examples/linux/make_disk.sh "$work/disk.img" "$packages" build/efi/hello-loader.efi --kernel
sim=build/host/bds-sim
"$sim" boot "$work/server.toml" --state "$work/state" --quiet >/dev/null
"$sim" vars "$work/state" order 0000,0001 >/dev/null
# The kernel as the firmware's own option, with its command line as the option's data: its EFI stub runs.
data=$(printf 'initrd=\\initrd.img root=/dev/sda2 ro quiet\0' | iconv -f ASCII -t UTF-16LE | od -An -v -tx1 | tr -d ' \n')
cp -r "$work/state" "$work/stub"
"$sim" vars "$work/stub" add stub 'HD(1,GPT,0D15C0DE-0000-4000-8000-000000000011,0x800,0x2EFFF)/\vmlinuz' \
  --data "$data" >/dev/null

for state in state stub; do
  for image in '' build/efi/bds.efi; do
    "$sim" boot "$work/server.toml" --state "$work/$state" --execute --json "$work/result.json" \
      ${image:+--image "$image"} </dev/null
    python3 - "$work/result.json" <<'PYTHON'
import json, sys
start = json.load(open(sys.argv[1]))["boots"][-1]["starts"][-1]
assert start["outcome"]["end"] == "exited boot services", start["outcome"]
system = start["outcome"]["system"]
assert "root=/dev/sda2 ro quiet" in system["command_line"] and system["initrd_size"] == 1 << 20, system
assert system["memory_map_entries"] > 0 and not start["complaints"], start["complaints"]
PYTHON
  done
done
echo "the operating system took over, from GRUB and from the kernel's own stub, with both drivers"
