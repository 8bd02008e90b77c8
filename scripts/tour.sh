#!/usr/bin/env bash
# A guided tour of the command-line client on real files: scripts/tour.sh <linux|windows>
#
# Everything happens below build/demo/tour-<platform>. Every step says which exit code it must end with, so
# that a tour that ends is one that went right.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

platform=${1:?linux or windows}
tour=$BUILD/demo/tour-$platform
limit=(timeout -k 10 120)

case $platform in
  linux)
    client() { "${limit[@]}" "$BUILD/linux/bin/stgctl" "$@"; }
    path() { printf '%s' "$1"; }
    ;;
  windows)
    client() { LC_ALL=C.UTF-8 "${limit[@]}" "$ROOT/scripts/wine-run.sh" "$BUILD/mingw/bin/stgctl.exe" "$@"; }
    # Wine's drive Z: is the whole file system.
    path() { printf 'Z:%s' "${1//\//\\}"; }
    ;;
  *) die "scripts/tour.sh knows no platform '$platform'; it knows linux and windows" ;;
esac

rm -rf "$tour"
mkdir -p "$tour"
STG_ROOT=$(path "$tour")
export STG_ROOT
steps=0

# step <exit code> <what it shows> <arguments of stgctl...>
step() {
  local wanted=$1 what=$2 code=0
  shift 2
  steps=$((steps + 1))
  printf '\n-- %s\n' "$what"
  printf '$ stgctl'
  printf ' %q' "$@"
  printf '\n'
  client "$@" </dev/null || code=$?
  [ "$code" -eq 0 ] || printf '(exit code %s)\n' "$code"
  [ "$code" -eq "$wanted" ] || die "the step should have ended with the exit code $wanted"
}

printf 'The tree of this tour: STG_ROOT=%s\n' "$STG_ROOT"
step 10 'There is no tree yet, and only init makes one' user list
step 0 'Make one' init --yes
step 12 'Where nobody can answer, changes want --yes' put "$(path "$ROOT/README.md")" --owner anna
step 0 'Preview: what would be stored?' put "$(path "$ROOT/docs")" --owner anna --dry-run
step 0 'Store this project'\''s documentation' put "$(path "$ROOT/docs")" --owner anna --yes
step 0 'Two versions of one document' put "$(path "$ROOT/README.md")" --as handbook.kdf --timestamp 1 --owner anna --yes
step 0 '... the second one' put "$(path "$ROOT/docs/formats.md")" --as handbook.kdf --timestamp 2 --owner anna --yes
step 0 'A profile, and a document of the user area' profile set language=en theme=dark --owner anna --yes
step 0 'What is in the tree?' status
step 0 'All documents of the area docs' ls --area docs
step 0 'Where does the space go?' stats --by ext
step 0 'The versions of one document' versions handbook.kdf --owner anna
step 0 'Where does one lie, physically?' which handbook.kdf --owner anna --timestamp 1

step 0 'Get it back ...' get handbook.kdf --timestamp 1 --owner anna -o "$(path "$tour/README.copy")"
cmp "$ROOT/README.md" "$tour/README.copy" || die "the copy differs from what was stored"
echo 'The copy is the original, byte for byte.'
step 3 'A version that is not there' get handbook.kdf --timestamp 3 --owner anna
step 3 'Why is it not served?' explain read handbook.kdf --timestamp 3 --owner anna

echo 'a note' >"$tour/storage/user/anna/note.txt"
printf '\n-- Somebody drops a file into a folder, behind the index:\n'
printf '$ echo "a note" > storage/user/anna/note.txt\n'
step 4 'The check finds it' check --strict
step 0 'Give it an entry' sync --yes
step 0 'All is well again' check --strict

step 0 'What would go, if 4 KiB were the limit?' clean --max-size 4K --dry-run
step 0 'As JSON, for programs' rm --match '*.md' --owner anna --dry-run --json
step 0 'Rename an owner' user rename anna berta --yes
step 0 'Who is there?' user list

printf '\n'
say "the tour: $steps steps, each with the exit code it should have; all of it is in $tour"
