#!/usr/bin/env bash
# Runs the demonstration program: scripts/demo.sh <linux|windows>
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

# The program's arguments, given the folder it may fill.
demo_arguments() { printf '%s\n' --root "$1"; }

platform=${1:?linux or windows}
root=$BUILD/demo/$platform
rm -rf "$root"
mkdir -p "$root"

case $platform in
  linux)
    mapfile -t arguments < <(demo_arguments "$root")
    "$BUILD/linux/bin/storage_demo" "${arguments[@]}"
    ;;
  windows)
    # Wine's drive Z: is the whole file system.
    mapfile -t arguments < <(demo_arguments "Z:${root//\//\\}")
    "$ROOT/scripts/wine-run.sh" "$BUILD/mingw/bin/storage_demo.exe" "${arguments[@]}"
    ;;
  *) die "scripts/demo.sh knows no platform '$platform'; it knows linux and windows" ;;
esac
