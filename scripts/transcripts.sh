#!/usr/bin/env bash
# Runs the commands of a guide's transcripts and compares what they print with what the guide shows:
#
#   scripts/transcripts.sh [--write] <folder of stgctl> <guide.md...>
#
# A transcript is a fence marked "console": a line that begins with "$ " is a command, the lines after it are its
# output. All fences of one guide are one bash session, in a folder that the guide calls /data.
# --write replaces the output in the guide.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

write=no
if [ "${1-}" = --write ]; then
  write=yes
  shift
fi
programs=$(cd "${1:?folder of stgctl}" && pwd)
shift
[ -x "$programs/stgctl" ] || die "there is no stgctl in $programs: run './dev build linux'"

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# Prints the guide with new output. Each guide runs in a separate process.
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
        # Not in a subshell: a command may set variables for the next ones. $? is the exit code of the previous command.
        set +e
        (exit "$code")
        eval "${line//\/data/$folder/data}" >"$folder/output" 2>&1 </dev/null
        code=$?
        set -e
        sed "s#$folder/data#/data#g" "$folder/output"
        continue
        ;;
    esac
    # Drops the old output.
    [ "$fenced" = yes ] || printf '%s\n' "$line"
  done
  [ "$ran" -gt 0 ] || die "$guide contains no transcript: mark its fences with 'console'"
}

failed=""
for guide in "$@"; do
  name=$(basename "$guide" .md)
  folder=$scratch/$name
  mkdir -p "$folder"
  (session "$(realpath "$guide")" "$folder") >"$scratch/$name.md" || die "cannot run the transcripts of $guide: see above"
  if [ "$write" = yes ]; then
    cp "$scratch/$name.md" "$guide"
  elif ! diff -u --label "$guide" --label "what the commands print" "$guide" "$scratch/$name.md"; then
    failed="$failed $guide"
  else
    say "$guide: $(grep -c '^\$ ' "$guide") commands print what it shows"
  fi
done
[ -z "$failed" ] || die "transcripts are out of date in$failed: if the new output is right, run scripts/transcripts.sh --write $programs$failed"
