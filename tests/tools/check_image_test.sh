#!/usr/bin/env bash
# Changes one header field at a time of a copy of the image and expects check_image.sh to refuse it.
# Usage: check_image_test.sh IMAGE; exit status 77 when there is no image.
set -u
image=${1:?usage: check_image_test.sh IMAGE}
checker=$(cd "$(dirname "$0")/.." && pwd)/check_image.sh
[ -f "$image" ] || { echo "$image: not built"; exit 77; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

# Offsets of the PE format: the COFF header is 4 bytes behind the signature that byte 60 leads to.
signature=$(od -An -tu4 -j60 -N4 "$image" | tr -d ' ')
coff=$((signature + 4))
optional=$((coff + 20))
sections=$((optional + $(od -An -tu2 -j$((coff + 16)) -N2 "$image" | tr -d ' ')))

patched() {  # patched WHAT OFFSET ESCAPED_BYTES MESSAGE
  cp "$image" "$work/bds.efi"
  printf "$3" | dd of="$work/bds.efi" bs=1 seek="$2" conv=notrunc status=none
  refused "$1" "$4"
}
refused() {  # refused WHAT MESSAGE
  local output
  if output=$("$checker" "$work/bds.efi") || ! grep -qF -- "$2" <<<"$output"; then
    echo "FAILED: $1: expected \"$2\"; it printed:"
    echo "$output"
    failures=$((failures + 1))
  fi
}

patched "application" $((optional + 68)) '\x0a' 'an EFI boot service driver'
patched "fixed address" $((optional + 70)) '\x20\x01' 'DYNAMIC_BASE'
patched "another machine" "$coff" '\x64\xaa' ''
patched "no relocation directory" $((optional + 112 + 5 * 8)) '\0\0\0\0\0\0\0\0' 'base relocation directory'
patched "relocations flagged away" $((coff + 18)) '\x2f\x02' 'relocations stripped'
patched "an import directory" $((optional + 112 + 8)) '\x00\x10\x00\x00\x14\x00\x00\x00' 'without imports'
patched "an export directory" $((optional + 112)) '\x00\x10\x00\x00\x14\x00\x00\x00' 'without exports'
patched "thread variables" $((optional + 112 + 9 * 8)) '\x00\x10\x00\x00\x14\x00\x00\x00' 'without thread variables'
patched "writable code" $((sections + 36)) '\x20\x00\x00\xe0' 'writable and executable'
patched "constructors" "$sections" '.ctors\0\0' 'a section of constructors'

cp "$image" "$work/bds.efi"
truncate -s 327680 "$work/bds.efi"
refused "too large" 'the limit is 327680'

"$checker" "$work/none.efi" >/dev/null
[ $? -eq 77 ] || { echo "FAILED: a missing image is not skipped"; failures=$((failures + 1)); }

echo "$failures failures"
[ "$failures" -eq 0 ]
