#!/usr/bin/env bash
# Holds the documentation against what it describes:
#
#   scripts/docs-check.sh quick <folder of stgctl>     transcripts, manual pages, the program in README.md
#   scripts/docs-check.sh commands [GUIDE.md...]       runs the commands of the guides as they are written
#
# Commands are the lines of fences marked "sh", and of plain fences in which every line is a ./dev command. All of
# one guide are one session of bash in the project's folder. What takes long gets a small budget, which is told.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
cd "$ROOT"

transcripts=(docs/administration.md docs/recovery.md docs/host-guide.md)

# The program that README.md shows is the example itself.
check_readme_program() {
  diff -u --label examples/hello.cpp --label README.md examples/hello.cpp \
    <(awk '/^```cpp$/ { inside = 1; next } /^```$/ { inside = 0 } inside' README.md) ||
    die "README.md shows another program than examples/hello.cpp"
  say "README.md shows examples/hello.cpp"
}

# The page is what the program writes, and tells every command and option that --help knows.
check_manual() {
  local client=$1/stgctl page=docs/man/stgctl.1 command option count=0
  diff -u --label "$page" --label "stgctl manual" "$page" <("$client" manual) ||
    die "$page is out of date; write it anew: stgctl manual > $page"
  local plain
  plain=$(sed 's/\\-/-/g; s/\\f[BIR]//g' "$page")
  local -a commands
  mapfile -t commands < <("$client" --help | sed -nE 's/^  ([a-z][a-z-]*)  .*/\1/p')
  [ "${#commands[@]}" -gt 0 ] || die "stgctl --help names no command"
  for command in "" "${commands[@]}"; do
    # shellcheck disable=SC2086  # no command: the options of all
    while read -r option; do
      count=$((count + 1))
      grep -q -e "$option" <<<"$plain" || die "stgctl $command --help knows $option, which $page does not tell"
    done < <("$client" $command --help | grep -oE '^ +(-[a-zA-Z],)?--[a-z-]+' | grep -oE -e '--[a-z-]+')
    [ -z "$command" ] || grep -q -e "$command" <<<"$plain" || die "$page does not tell the command $command"
  done
  [ "$count" -gt 0 ] || die "no option was read from stgctl --help"
  say "$page tells ${#commands[@]} commands and every one of their $count options"
}

# The commands of a guide, one per line.
commands_of() {
  awk '
    /^ *```/ {
      if (!inside) { inside = 1; kind = $0; sub(/^ *```/, "", kind); n = 0; all_dev = 1; next }
      if (kind == "sh" || (kind == "" && all_dev && n > 0)) for (i = 1; i <= n; i++) print lines[i]
      inside = 0; next
    }
    inside { if ($0 ~ /[^ ]/) { lines[++n] = $0; if ($0 !~ /^\.\/dev /) all_dev = 0 } }' "$1"
}

# A command as it is run here. Nothing: it is not run, and the reason is told.
within_budget() {
  local line=${1%%  #*}
  case $line in
    './dev docs-check'*) echo "not run (this is it): $1" >&2 ;;
    './dev bench growth'*) echo "not run (minutes, and 1,500,000 free inodes): $1" >&2 ;;
    './dev bench windows'*) echo "not run (minutes): $1" >&2 ;;
    './dev bench'*) echo './dev bench --quick "exists, hit"' ;;
    './dev stgctl-bench'*) echo './dev stgctl-bench 2000' ;;
    './dev shared'*) echo "not run (minutes; needs root, FUSE and namespaces): $1" >&2 ;;
    './dev reliability list'*) echo "$line" ;;
    './dev reliability'*) echo "$line --budget 5" ;;
    './dev fuzz'*--merge*) echo "not run (it changes the committed inputs): $1" >&2 ;;
    './dev fuzz list'*) echo "$line" ;;
    './dev fuzz'*) echo "$line --budget 5" ;;
    './dev test'*) echo "VU_TEST_LABEL=check $line" ;;
    *) echo "$line" ;;
  esac
}

check_commands() {
  local guide line run script end count=0 total=0
  scratch=$(mktemp -d)
  trap 'rm -rf "$scratch"' EXIT
  script=$scratch/session.sh
  for guide in "$@"; do
    [ -f "$guide" ] || die "there is no guide $guide"
    count=0
    printf 'set -euo pipefail\n' >"$script"
    end=""
    while IFS= read -r line; do
      # What goes to a command's input is not looked at.
      if [ -n "$end" ]; then
        printf '%s\n' "$line" >>"$script"
        [ "$line" != "$end" ] || end=""
        continue
      fi
      [[ $line =~ \<\<\'([A-Z]+)\' ]] && end=${BASH_REMATCH[1]}
      run=$(within_budget "$line")
      [ -n "$run" ] || continue
      count=$((count + 1))
      # A comment tells when a command ends with something else than 0.
      if [[ $line =~ '# ends with '([0-9]+) ]]; then
        run="code=0; { $run; } || code=\$?; [ \$code -eq ${BASH_REMATCH[1]} ]"
      fi
      printf 'printf "%%s\\n" %q\n%s\n' "+ $run" "$run" >>"$script"
    done < <(commands_of "$guide")
    [ "$count" -gt 0 ] || continue
    say "$guide: $count commands"
    TMPDIR=$scratch bash "$script" </dev/null || die "a command of $guide failed (see above)"
    total=$((total + count))
  done
  [ "$total" -gt 0 ] || die "no command was found"
  say "$total commands of the guides work as they are written"
}

case ${1:?quick or commands} in
  quick)
    check_readme_program
    check_manual "${2:?folder of stgctl}"
    scripts/transcripts.sh "$2" "${transcripts[@]}"
    ;;
  commands)
    shift
    [ $# -gt 0 ] || set -- README.md CONTRIBUTING.md docs/*.md
    check_commands "$@"
    ;;
  *) die "scripts/docs-check.sh knows quick and commands, not '$1'" ;;
esac
