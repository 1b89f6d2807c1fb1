#!/usr/bin/env bash
# An operating system's boot chain for real: the firmware's option starts Debian's signed shim, that its signed GRUB,
# whose menu chain-loads the project's loader, restarts the server or powers it off; GRUB that is not signed comes to its
# prompt. With the linked driver and with the EFI image, and the same each time.
# usage: linux_chain.sh SOURCE_DIR BDS_SIM BDS_EFI LOADER_EFI [PACKAGES]
set -euo pipefail
source=$1 sim=$2 image=$3 loader=$4 packages=${5:-$1/build/linux-packages}
for needed in "$image" "$loader" "$packages/usr/lib/shim" "$packages/usr/lib/grub" \
  /usr/lib/grub/x86_64-efi/monolithic/grubx64.efi; do
  [ -e "$needed" ] || { echo "skipped: $needed is not there"; exit 77; }
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
sed 's|image = .*|image = "disk.img"|' "$source/examples/linux/server.toml" >"$work/server.toml"
"$source/examples/linux/make_disk.sh" "$work/disk.img" "$packages" "$loader"
"$sim" boot "$work/server.toml" --state "$work/state" --quiet >/dev/null
"$sim" vars "$work/state" order 0000,0001 >/dev/null

# boot NAME WANTED_STATUS ARGUMENT... : the JSON result in NAME.json
boot() {
  local name=$1 wanted=$2 status=0
  shift 2
  rm -rf "$work/copy"
  cp -r "$work/state" "$work/copy"
  "$sim" boot "$work/server.toml" --state "$work/copy" --execute --json "$work/$name.json" "$@" \
    </dev/null >"$work/$name.out" 2>&1 || status=$?
  [ "$status" = "$wanted" ] || { echo "$name: exit status $status, not $wanted"; cat "$work/$name.out"; exit 1; }
}

for driver in linked image; do
  arguments=()
  [ "$driver" = image ] && arguments=(--image "$image")
  boot "$driver-menu" 0 "${arguments[@]}"
  boot "$driver-again" 0 "${arguments[@]}"
  cmp "$work/$driver-menu.json" "$work/$driver-again.json"
  boot "$driver-restart" 0 "${arguments[@]}" --keys '{down}{enter}'
  boot "$driver-off" 3 "${arguments[@]}" --keys '{down}{down}{enter}'
done
"$sim" vars "$work/state" add plain \
  'HD(1,GPT,0D15C0DE-0000-4000-8000-000000000011,0x800,0x2EFFF)/\EFI\debian\unsigned.efi' >/dev/null
boot prompt 4 --keys 'c'

python3 - "$work" <<'PYTHON'
import json, sys
from pathlib import Path

def starts(name):
    boot = json.loads((Path(sys.argv[1]) / f"{name}.json").read_text())["boots"][-1]
    for start in boot["starts"]:
        assert not start["complaints"], (name, start["complaints"])
    return boot["starts"]

for driver in ("linked", "image"):
    menu = starts(f"{driver}-menu")[-1]
    assert "hello-loader: device path: " in menu["console"], menu["console"]
    started = [(each["what"].replace("/", "\\").split("\\")[-1], each["status"]) for each in menu["attempts"]]
    assert ("hello.efi", "EFI_SUCCESS") in started and ("shimx64.efi", "EFI_SUCCESS") in started, started
    assert menu["booted"]["number"] == "0001", menu["booted"]  # the loader left; the next option came

    first, second = starts(f"{driver}-restart")
    assert first["outcome"]["summary"].startswith("cold reset"), first["outcome"]
    assert second["booted"]["number"] == "0001", second["booted"]

    (off,) = starts(f"{driver}-off")
    assert "powered off" in off["outcome"]["summary"], off["outcome"]

(prompt,) = starts("prompt")
assert any(line.startswith("grub>") for line in prompt["screen"]), prompt["screen"]
assert prompt["outcome"]["end"] == "waits forever", prompt["outcome"]
PYTHON
echo "shim, GRUB, the menu's entries and GRUB's prompt, with both drivers"
