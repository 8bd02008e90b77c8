#!/usr/bin/env bash
# The steps of ./dev demo:
#
#   scripts/demo.sh store <linux|windows>   the demo program stores several hundred real files, reads them back
#                                           and compares every byte; the Windows program runs under Wine
#   scripts/demo.sh exchange                each platform reads and compares what the other one wrote, and the client
#                                           moves a tree from each platform to the other
#   scripts/demo.sh tour <linux|windows>    shows the commands of the client on real files
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

native_files=300
windows_files=150

# run_on <platform> <program> <arguments...>: ends a program that hangs; the limit is much longer than a run takes.
run_on() {
  local platform=$1 program=$2
  shift 2
  case $platform in
    linux) timeout -k 10 600 "$BUILD/linux/bin/$program" "$@" ;;
    windows) timeout -k 10 600 "$ROOT/scripts/wine.sh" "$BUILD/mingw/bin/$program.exe" "$@" ;;
    *) die "unknown platform '$platform': use linux or windows" ;;
  esac
}

# path_on <platform> <path>: Wine's drive Z: is the whole file system.
path_on() {
  if [ "$1" = windows ]; then printf 'Z:%s' "${2//\//\\}"; else printf '%s' "$2"; fi
}

# ---- storing and reading back -------------------------------------------------------------------------

store() {
  local folder limit=$native_files
  local -a sources=()
  # The native program uses the same source folders by default.
  if [ "$1" = windows ]; then
    limit=$windows_files
    for folder in /usr/share/doc /usr/share/fonts /usr/share/ca-certificates /usr/include /usr/share/cmake*/Help; do
      [ ! -d "$folder" ] || sources+=(--source "$(path_on windows "$folder")")
    done
  fi
  run_on "$1" storage_demo --root "$(path_on "$1" "$BUILD/demo/$1")" --fresh --max-files "$limit" \
    ${sources[@]+"${sources[@]}"}
}

# read_back <platform> <platform that wrote the files>
read_back() {
  run_on "$1" storage_demo --root "$(path_on "$1" "$BUILD/demo/$2")" \
    --verify-only "$(path_on "$1" "$BUILD/demo/$2/manifest.tsv")"
}

exchange() {
  say "the native program reads what the Windows library wrote"
  read_back linux windows
  say "the Windows program reads what the native library wrote"
  read_back windows linux
  say "the client moves a tree from each platform to the other"
  move_tree linux windows
  move_tree windows linux
}

# ---- moving a tree ------------------------------------------------------------------------------------

place=$BUILD/demo/moving

# on <platform> <tree> <arguments of stgctl...>
on() {
  local platform=$1 tree=$2
  shift 2
  run_on "$platform" stgctl "$@" --root "$(path_on "$platform" "$place/$tree")" </dev/null >"$place/log" ||
    { tail -n 5 "$place/log" >&2; die "'stgctl $*' failed on $platform: see above"; }
}

# Platform FROM creates and exports a tree. Platform TO imports, compares and exports it; FROM compares that export.
# Both manifests must be equal byte for byte.
# move_tree <from> <to>
move_tree() {
  local from=$1 to=$2 name stamp
  rm -rf "$place"
  mkdir -p "$place/first" "$place/second"
  on "$from" first init --yes
  on "$from" first put "$(path_on "$from" "$ROOT/docs")" --owner anna --yes
  for name in 'Plain.kdc' 'plain.kdc' 'colon: 5.kdc' 'ends in a blank .kdc' 'Größe.kdc' "$(printf 'l%.0s' {1..250}).kdc"; do
    on "$from" first put "$(path_on "$from" "$ROOT/README.md")" --as "$name" --owner anna --yes
  done
  for stamp in 1 1199145600; do
    on "$from" first put "$(path_on "$from" "$ROOT/README.md")" --as versions.kdf --timestamp "$stamp" --owner berta --yes
  done
  on "$from" first profile set language=en --owner anna --yes
  on "$from" first put "$(path_on "$from" "$ROOT/README.md")" --as 'f4#f5#x#A%20B.kdb' --area mail --owner anna --yes
  mkdir -p "$place/first/storage/list/anna"
  cp -p "$ROOT/README.md" "$place/first/storage/list/anna/all.lst"

  on "$from" first export "$(path_on "$from" "$place/export")"
  on "$to" second init --yes
  on "$to" second import "$(path_on "$to" "$place/export")" --yes
  on "$to" second compare "$(path_on "$to" "$place/export")"
  tail -n 1 "$place/log"
  on "$to" second export "$(path_on "$to" "$place/back")"
  cmp "$place/export/manifest.jsonl" "$place/back/manifest.jsonl" || die "the manifests differ: compare manifest.jsonl in $place/export and $place/back"
  on "$from" first compare "$(path_on "$from" "$place/back")"
  say "moved from $from to $to: the trees compare equal, and their manifests are the same"
}

# ---- a tour of the client -----------------------------------------------------------------------------

# Each step states its expected exit code; another exit code is an error. The tree is build/demo/tour-<platform>.
# step <exit code> <what it shows> <arguments of stgctl...>
step() {
  local wanted=$1 what=$2 code=0
  shift 2
  steps=$((steps + 1))
  printf '\n-- %s\n' "$what"
  printf '$ stgctl'
  printf ' %q' "$@"
  printf '\n'
  run_on "$platform" stgctl "$@" </dev/null || code=$?
  [ "$code" -eq 0 ] || printf '(exit code %s)\n' "$code"
  [ "$code" -eq "$wanted" ] || die "the step ended with exit code $code, expected $wanted: see above"
}

tour() {
  platform=$1
  local tour=$BUILD/demo/tour-$platform
  steps=0
  rm -rf "$tour"
  mkdir -p "$tour"
  STG_ROOT=$(path_on "$platform" "$tour")
  export STG_ROOT

  printf 'The storage tree of this demo: STG_ROOT=%s\n' "$STG_ROOT"
  step 10 'There is no tree yet; only init creates one' user list
  step 0 'Create a tree' init --yes
  step 12 'A change without a terminal to confirm it needs --yes' put "$(path_on "$platform" "$ROOT/README.md")" --owner anna
  step 0 'Preview: what would be stored?' put "$(path_on "$platform" "$ROOT/docs")" --owner anna --dry-run
  step 0 'Store this project'\''s documentation' put "$(path_on "$platform" "$ROOT/docs")" --owner anna --yes
  step 0 'Two versions of one document' put "$(path_on "$platform" "$ROOT/README.md")" --as handbook.kdf --timestamp 1 --owner anna --yes
  step 0 '... the second version' put "$(path_on "$platform" "$ROOT/docs/formats.md")" --as handbook.kdf --timestamp 2 --owner anna --yes
  step 0 'A profile, and a document of the user area' profile set language=en theme=dark --owner anna --yes
  step 0 'What is in the tree?' status
  step 0 'All documents of the area docs' ls --area docs
  step 0 'Where does the space go?' stats --by ext
  step 0 'The versions of one document' versions handbook.kdf --owner anna
  step 0 'Which file contains a version?' which handbook.kdf --owner anna --timestamp 1

  step 0 'Read it back' get handbook.kdf --timestamp 1 --owner anna -o "$(path_on "$platform" "$tour/README.copy")"
  cmp "$ROOT/README.md" "$tour/README.copy" || die "the copy differs from the original: compare $tour/README.copy with $ROOT/README.md"
  echo 'The copy equals the original, byte for byte.'
  step 3 'A version that does not exist' get handbook.kdf --timestamp 3 --owner anna
  step 3 'Why is it not served?' explain read handbook.kdf --timestamp 3 --owner anna

  echo 'a note' >"$tour/storage/user/anna/note.txt"
  printf '\n-- Another program puts a file into a folder, without the index:\n'
  printf '$ echo "a note" > storage/user/anna/note.txt\n'
  step 4 'The check finds the orphan' check --strict
  step 0 'Adopt it: create an entry for it' sync --yes
  step 0 'The check finds nothing' check --strict

  step 0 'What would a clean with a limit of 4 KiB remove?' clean --max-size 4K --dry-run
  step 0 'A preview as JSON, for programs' rm --match '*.md' --owner anna --dry-run --json
  step 0 'Rename an owner' user rename anna berta --yes
  step 0 'List the owners' user list

  printf '\n'
  say "$steps steps of the client passed, each with the expected exit code; the tree is in $tour"
}

case "${1-} ${2-}" in
  "store linux" | "store windows") store "$2" ;;
  "exchange ") exchange ;;
  "tour linux" | "tour windows")
    say "a tour of the client on $2"
    tour "$2"
    ;;
  *) die "unknown step '$*': use 'store PLATFORM', 'exchange' or 'tour PLATFORM'" ;;
esac
