#!/usr/bin/env bash
# Configures and builds one preset (host, asan or efi) into build/PRESET. usage: build.sh PRESET [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."
preset=$1
shift
log=build/$preset/configure.log
mkdir -p "build/$preset"
if ! cmake --preset "$preset" >"$log" 2>&1; then
  cat "$log" >&2
  exit 1
fi
echo "Building $preset"
cmake --build "build/$preset" -j "$(nproc)" ${1:+--target "$@"} -- --quiet
