#!/usr/bin/env bash
# Moves a tree from one platform to the other and back: scripts/moving.sh [FROM] [TO]
#
# FROM and TO are linux or windows; the defaults are linux and windows. Platform FROM creates and exports a tree.
# Platform TO imports, compares and exports it; FROM compares that export. Both manifests must be equal byte for byte.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

from=${1:-linux}
to=${2:-windows}
place=$BUILD/demo/moving
limit=(timeout -k 10 300)

# client <platform> <arguments of stgctl...>
client() {
  local platform=$1
  shift
  case $platform in
    linux) "${limit[@]}" "$BUILD/linux/bin/stgctl" "$@" ;;
    windows) LC_ALL=C.UTF-8 "${limit[@]}" "$ROOT/scripts/wine-run.sh" "$BUILD/mingw/bin/stgctl.exe" "$@" ;;
    *) die "unknown platform '$platform': use linux or windows" ;;
  esac
}

# Wine's drive Z: is the whole file system.
path() { # <platform> <path>
  if [ "$1" = windows ]; then printf 'Z:%s' "${2//\//\\}"; else printf '%s' "$2"; fi
}

on() { # <platform> <tree> <arguments of stgctl...>
  local platform=$1 tree=$2
  shift 2
  client "$platform" "$@" --root "$(path "$platform" "$place/$tree")" </dev/null >"$place/log" ||
    { tail -n 5 "$place/log" >&2; die "'stgctl $*' failed on $platform: see above"; }
}

rm -rf "$place"
mkdir -p "$place/first" "$place/second"
on "$from" first init --yes
on "$from" first put "$(path "$from" "$ROOT/docs")" --owner anna --yes
for name in 'Plain.kdc' 'plain.kdc' 'colon: 5.kdc' 'ends in a blank .kdc' 'Größe.kdc' "$(printf 'l%.0s' {1..250}).kdc"; do
  on "$from" first put "$(path "$from" "$ROOT/README.md")" --as "$name" --owner anna --yes
done
for stamp in 1 1199145600; do
  on "$from" first put "$(path "$from" "$ROOT/README.md")" --as versions.kdf --timestamp "$stamp" --owner berta --yes
done
on "$from" first profile set language=en --owner anna --yes
on "$from" first put "$(path "$from" "$ROOT/README.md")" --as 'f4#f5#x#A%20B.kdb' --area mail --owner anna --yes
mkdir -p "$place/first/storage/list/anna"
cp -p "$ROOT/README.md" "$place/first/storage/list/anna/all.lst"

on "$from" first export "$(path "$from" "$place/export")"
on "$to" second init --yes
on "$to" second import "$(path "$to" "$place/export")" --yes
on "$to" second compare "$(path "$to" "$place/export")"
tail -n 1 "$place/log"
on "$to" second export "$(path "$to" "$place/back")"
cmp "$place/export/manifest.jsonl" "$place/back/manifest.jsonl" || die "the manifests differ: compare manifest.jsonl in $place/export and $place/back"
on "$from" first compare "$(path "$from" "$place/back")"
say "moved from $from to $to: the trees compare equal, and their manifests are the same"
