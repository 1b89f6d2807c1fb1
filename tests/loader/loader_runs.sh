#!/usr/bin/env bash
# A loader of the project's own runs for real: it prints its device path on the console and returns, and its return
# makes the driver try the next option. With the linked driver and with the EFI image.
# usage: loader_runs.sh SOURCE_DIR BDS_SIM BDS_EFI LOADER_EFI
set -euo pipefail
source=$1 sim=$2 image=$3 loader=$4
if [ ! -e "$image" ] || [ ! -e "$loader" ]; then
  echo "skipped: the EFI image or the loader is not built"
  exit 77
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp "$source/tests/loader/server.toml" "$work/"
"$source/tools/make_disk_images.sh" "$work" "$loader"
"$source/tools/installer_nvram.py" "$work/state/nvram" "$work/loader.img" 0000 hello '\EFI\hello\hello.efi' >/dev/null
# The shell's option is made by a first boot; then an operator puts the loader in front of it.
"$sim" boot "$work/server.toml" --state "$work/state" --quiet >/dev/null
"$sim" run "$work/state" -- efibootmgr -q -o 0000,0001

for driver in linked image; do
  arguments=()
  [ "$driver" = image ] && arguments=(--image "$image")
  "$sim" boot "$work/server.toml" --state "$work/state" --execute --json "$work/$driver.json" \
    "${arguments[@]}" >"$work/$driver.out"
  grep -q 'hello-loader: device path: .*/HD(1,GPT,.*)/\\EFI\\hello\\hello.efi' "$work/$driver.out"
  python3 - "$work/$driver.json" <<'PYTHON'
import json, sys
boot = json.load(open(sys.argv[1]))["boots"][-1]
assert boot["booted"]["number"] == "0001", boot["booted"]
first = boot["starts"][-1]["attempts"][0]
assert "hello.efi" in json.dumps(first) and "EFI_SUCCESS" in json.dumps(first), first
PYTHON
done
echo "the loader ran and returned, and the next option was started, with both drivers"
