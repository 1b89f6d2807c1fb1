#!/usr/bin/env bash
# Downloads Debian's signed shim and GRUB with apt-get and unpacks them in a folder; nothing is installed. What is there
# already is not asked for again.
# usage: fetch_loaders.sh DIR [--kernel]
#   --kernel  the kernel that linux-image-amd64 stands for, too (a package of about 70 MB)
set -euo pipefail
dir=$1
kernel=${2:-}

# fetch PACKAGE FILE_OF_IT [PATH...] : the paths named, or all of the package
fetch() {
  local package=$1 file=$2 work
  shift 2
  compgen -G "$dir/$file" >/dev/null && return
  work=$(mktemp -d)
  echo "Downloading $package"
  if ! (cd "$work" && apt-get download -qq -o APT::Sandbox::User=root "$package" 2>"$work/errors"); then
    cat "$work/errors" >&2
    rm -rf "$work"
    return 1
  fi
  mkdir -p "$dir"
  dpkg-deb --fsys-tarfile "$work"/*.deb | tar x -C "$dir" "$@"
  rm -rf "$work"
}

fetch shim-signed usr/lib/shim/shimx64.efi.signed
fetch grub-efi-amd64-signed usr/lib/grub/x86_64-efi-signed/grubx64.efi.signed
if [ "$kernel" = --kernel ]; then
  name=$(apt-cache depends linux-image-amd64 | sed -n 's/^ *Depends: \(linux-image-[0-9].*\)/\1/p' | head -n 1)
  [ -n "$name" ] || { echo "fetch_loaders.sh: linux-image-amd64 names no kernel here" >&2; exit 1; }
  fetch "$name" 'boot/vmlinuz-*' ./boot
fi
