#!/usr/bin/env bash
# The steps of ./dev demo:
#
#   scripts/demo.sh store <linux|windows>   the demo program stores several hundred real files, reads them back
#                                           and compares every byte; the Windows program runs under Wine
#   scripts/demo.sh exchange                each platform reads and compares what the other one wrote
#   scripts/demo.sh tour <linux|windows>    scripts/tour.sh
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

# Much longer than a run takes; ends a program that hangs.
limit=(timeout -k 10 600)
native_files=300
windows_files=150

# Wine's drive Z: is the whole file system.
windows_path() { printf 'Z:%s' "${1//\//\\}"; }

run_native() { "${limit[@]}" "$BUILD/linux/bin/storage_demo" "$@"; }

# Wine encodes file names in the encoding of the locale.
run_windows() {
  LC_ALL=C.UTF-8 "${limit[@]}" "$ROOT/scripts/wine-run.sh" "$BUILD/mingw/bin/storage_demo.exe" "$@"
}

demo_linux() { run_native --root "$BUILD/demo/linux" --fresh --max-files "$native_files"; }

# The native program uses the same source folders by default.
demo_windows() {
  local folder
  local -a sources=()
  for folder in /usr/share/doc /usr/share/fonts /usr/share/ca-certificates /usr/include /usr/share/cmake*/Help; do
    [ ! -d "$folder" ] || sources+=(--source "$(windows_path "$folder")")
  done
  run_windows --root "$(windows_path "$BUILD/demo/windows")" --fresh --max-files "$windows_files" \
    "${sources[@]}"
}

exchange() {
  say "the native program reads what the Windows library wrote"
  run_native --root "$BUILD/demo/windows" --verify-only "$BUILD/demo/windows/manifest.tsv"
  say "the Windows program reads what the native library wrote"
  run_windows --root "$(windows_path "$BUILD/demo/linux")" \
    --verify-only "$(windows_path "$BUILD/demo/linux/manifest.tsv")"
  say "the client moves a tree from each platform to the other"
  "$ROOT/scripts/moving.sh" linux windows
  "$ROOT/scripts/moving.sh" windows linux
}

case "${1-} ${2-}" in
  "store linux") demo_linux ;;
  "store windows") demo_windows ;;
  "exchange ") exchange ;;
  "tour linux" | "tour windows")
    say "a tour of the client on $2"
    "$ROOT/scripts/tour.sh" "$2"
    ;;
  *) die "unknown step '$*': use 'store PLATFORM', 'exchange' or 'tour PLATFORM'" ;;
esac
