#!/usr/bin/env bash
# What firmware expects of the driver's image. Usage: check_image.sh IMAGE; exit status 0: all holds, 1: something does
# not, 77: there is no such image (the test counts as skipped).
set -u
image=${1:?usage: check_image.sh IMAGE}
limit=$((320 * 1024))
objdump=x86_64-w64-mingw32-objdump
[ -f "$image" ] || { echo "$image: not built"; exit 77; }
command -v "$objdump" >/dev/null || objdump=objdump

headers=$("$objdump" -p "$image") || exit 1
sections=$("$objdump" -hw "$image") || exit 1
faults=0

expect() {  # expect WHAT PATTERN TEXT
  grep -qE -- "$2" <<<"$3" || { echo "FAULT: not $1"; faults=$((faults + 1)); }
}
refuse() {  # refuse WHAT PATTERN TEXT
  local found
  found=$(grep -E -- "$2" <<<"$3") && { echo "FAULT: $1: $found"; faults=$((faults + 1)); }
  return 0
}
directory_is_empty() {  # directory_is_empty WHAT INDEX
  expect "without $1" "^Entry $2 0+ 0+ " "$headers"
}

expect "an x86-64 image" 'file format pei-x86-64' "$headers"
expect "PE32+" '^Magic[[:space:]]+020b' "$headers"
expect "an EFI boot service driver" '^Subsystem[[:space:]]+0*b[[:space:]]' "$headers"
expect "relocatable (no base relocation directory)" '^Entry 5 [0-9a-f]*[1-9a-f][0-9a-f]* [0-9a-f]*[1-9a-f]' "$headers"
expect "relocatable (DYNAMIC_BASE)" 'DYNAMIC_BASE' "$headers"
refuse "relocations stripped" 'relocations stripped' "$headers"
directory_is_empty "exports" 0
directory_is_empty "imports" 1
directory_is_empty "thread variables" 9
directory_is_empty "an import address table" c
refuse "an import or export section" '\.(idata|edata)' "$sections"
refuse "a section of constructors" '\.(ctors|init_array|CRT|tls)' "$sections"
# A section without READONLY is writable; one with CODE is executable.
refuse "a section that is writable and executable" '^ *[0-9]+ .*CODE' "$(grep -v READONLY <<<"$sections")"
expect "with a string package resource" '^Entry 2 [0-9a-f]*[1-9a-f][0-9a-f]* ' "$headers"

size=$(stat -c %s "$image")
[ "$size" -lt "$limit" ] || { echo "FAULT: $size bytes; the limit is $limit"; faults=$((faults + 1)); }

echo "$image: $size bytes, $faults faults"
[ "$faults" -eq 0 ]
