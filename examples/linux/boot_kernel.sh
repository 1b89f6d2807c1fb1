#!/usr/bin/env bash
# Boots Debian's own chain up to the kernel: shim, GRUB, its menu entry, the kernel's EFI stub, ExitBootServices. With
# the linked driver and with the EFI image.
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
for image in '' build/efi/bds.efi; do
  "$sim" boot "$work/server.toml" --state "$work/state" --execute --json "$work/result.json" ${image:+--image "$image"} \
    </dev/null
  python3 - "$work/result.json" <<'PYTHON'
import json, sys
start = json.load(open(sys.argv[1]))["boots"][-1]["starts"][-1]
system = start["outcome"]["system"]
assert start["outcome"]["end"] == "exited boot services", start["outcome"]
assert "root=/dev/sda2 ro quiet" in system["command_line"] and system["initrd_size"] == 1 << 20, system
assert system["memory_map_entries"] > 0 and not start["complaints"], start["complaints"]
PYTHON
done
echo "the operating system took over, with both drivers"
