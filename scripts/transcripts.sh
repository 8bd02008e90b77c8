#!/usr/bin/env bash
# Runs the commands of a guide's transcripts and compares what they print with what the guide shows:
#
#   scripts/transcripts.sh [--write] <folder of stgctl> <guide.md...>
#
# A transcript is a fence marked "console": lines that begin with "$ " are commands, what follows each is its
# output. The fences of one guide are one session of bash, in a folder that stands in the guide as /data.
# --write puts the output of now into the guide.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

write=no
if [ "${1-}" = --write ]; then
  write=yes
  shift
fi
programs=$(cd "${1:?folder of stgctl}" && pwd)
shift
[ -x "$programs/stgctl" ] || die "there is no stgctl in $programs; ./dev build linux makes it"

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# The guide with fresh output, on the standard output. In a process of its own for each guide.
session() {
  local guide=$1 folder=$2 line fenced=no code=0 ran=0
  mkdir -p "$folder/data"
  export PATH=$programs:$PATH HOME=$folder TZ=UTC LC_ALL=C.UTF-8
  unset STG_ROOT NO_COLOR
  cd "$folder/data"
  exec 3<"$guide"
  while IFS= read -r line <&3; do
    case $fenced:$line in
      'no:```console')
        fenced=yes
        printf '%s\n' "$line"
        continue
        ;;
      'yes:```') fenced=no ;;
      'yes:$ '*)
        printf '%s\n' "$line"
        line=${line#'$ '}
        ran=$((ran + 1))
        # Not in a subshell: what a command sets holds for the next ones. $? is that of the one before.
        set +e
        (exit "$code")
        eval "${line//\/data/$folder/data}" >"$folder/output" 2>&1 </dev/null
        code=$?
        set -e
        sed "s#$folder/data#/data#g" "$folder/output"
        continue
        ;;
    esac
    # The output of before is left out; everything else stays.
    [ "$fenced" = yes ] || printf '%s\n' "$line"
  done
  [ "$ran" -gt 0 ] || die "$guide holds no transcript"
}

failed=""
for guide in "$@"; do
  name=$(basename "$guide" .md)
  folder=$scratch/$name
  mkdir -p "$folder"
  (session "$(realpath "$guide")" "$folder") >"$scratch/$name.md" || die "the transcripts of $guide could not be run"
  if [ "$write" = yes ]; then
    cp "$scratch/$name.md" "$guide"
  elif ! diff -u --label "$guide" --label "what the commands print" "$guide" "$scratch/$name.md"; then
    failed="$failed $guide"
  else
    say "$guide: $(grep -c '^\$ ' "$guide") commands print what it shows"
  fi
done
[ -z "$failed" ] || die "the transcripts of$failed are out of date; after a change that is meant: scripts/transcripts.sh --write $programs$failed"
