#!/usr/bin/env bash
# The image has the same bytes wherever it is built: the tree's own one is brought up to date, another one is built from
# a copy of the sources in another folder, without the compiler's cache, and the two are compared.
# Usage: reproducible_image.sh ROOT; exit status 77: the tree's image was never built.
set -euo pipefail
root=${1:?usage: reproducible_image.sh ROOT}
[ -e "$root/build/efi/build.ninja" ] || { echo "skipped: the image is not built"; exit 77; }
cmake --build "$root/build/efi" --target bds -- --quiet

copy=$(mktemp -d)/a_folder_with_a_longer_name
trap 'rm -rf "$(dirname "$copy")"' EXIT
mkdir -p "$copy/tools"
cp -r "$root"/{CMakeLists.txt,CMakePresets.json,cmake} "$copy/"
for directory in platform support core bootopt bmc osopt flexboot vboot inventory tools/loader; do
  [ ! -d "$root/$directory" ] || cp -r "$root/$directory" "$copy/$directory"
done
cd "$copy"
export CCACHE_DISABLE=1
cmake --preset efi >/dev/null
cmake --build build/efi --target bds -- --quiet
cmp "$root/build/efi/bds.efi" build/efi/bds.efi
sha256sum build/efi/bds.efi
