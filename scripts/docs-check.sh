#!/usr/bin/env bash
# Checks that the documentation is true:
#
#   scripts/docs-check.sh quick <folder of stgctl>     transcripts, stgctl.1, the program in README.md
#   scripts/docs-check.sh commands [GUIDE.md...]       runs the commands of the guides
#
# Commands are the lines of fences marked "sh", and of plain fences in which every line is a ./dev command. All
# commands of one guide run in one bash session in the project's folder. A long run gets a small budget instead.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
cd "$ROOT"

transcripts=(docs/administration.md docs/recovery.md docs/host-guide.md)

# README.md shows exactly the text of examples/hello.cpp.
check_readme_program() {
  diff -u --label examples/hello.cpp --label README.md examples/hello.cpp \
    <(awk '/^```cpp$/ { inside = 1; next } /^```$/ { inside = 0 } inside' README.md) ||
    die "README.md differs from examples/hello.cpp (see above): copy the program into README.md"
  say "README.md shows examples/hello.cpp"
}

# The manual page equals the output of "stgctl manual" and contains every command and option of --help.
check_manual() {
  local client=$1/stgctl page=docs/man/stgctl.1 command option count=0
  diff -u --label "$page" --label "stgctl manual" "$page" <("$client" manual) ||
    die "$page is out of date: run 'stgctl manual > $page'"
  local -a commands options
  mapfile -t commands < <("$client" --help | sed -nE 's/^  ([a-z][a-z-]*)  .*/\1/p')
  [ "${#commands[@]}" -gt 0 ] || die "cannot read the commands from the output of 'stgctl --help'"
  local help described
  for command in "" "${commands[@]}"; do
    # shellcheck disable=SC2086  # an empty command stands for the common options
    help=$("$client" $command --help) || die "'stgctl $command --help' failed: see above"
    mapfile -t options < <(grep -oE '^ +(-[a-zA-Z],)?--[a-z-]+' <<<"$help" | grep -oE -e '--[a-z-]+')
    [ "${#options[@]}" -gt 0 ] || die "cannot read the options from the output of 'stgctl $command --help'"
    # The common options, and the sections of the command and of its subcommands.
    described=$(awk -v own=".SS $command" '
      /^\.S[HS] / {
        is_own = $0 == own || index($0, own " ") == 1
        found += is_own
        wanted = is_own || $0 == ".SH OPTIONS"
      }
      wanted
      END { exit own != ".SS " && !found }' "$page") || die "$page has no section for the command $command"
    described=$(sed 's/\\-/-/g; s/\\f[BIR]//g' <<<"$described")
    for option in "${options[@]}"; do
      count=$((count + 1))
      grep -qE -e "(^|[^a-z-])$option([^a-z-]|$)" <<<"$described" ||
        die "$page lacks the option $option of 'stgctl $command'"
    done
  done
  say "$page contains all ${#commands[@]} commands and their $count options"
}

# Prints the commands of a guide, one per line.
commands_of() {
  awk '
    /^ *```/ {
      if (!inside) { inside = 1; kind = $0; sub(/^ *```/, "", kind); n = 0; all_dev = 1; next }
      if (kind == "sh" || (kind == "" && all_dev && n > 0)) for (i = 1; i <= n; i++) print lines[i]
      inside = 0; next
    }
    inside { if ($0 ~ /[^ ]/) { lines[++n] = $0; if ($0 !~ /^\.\/dev /) all_dev = 0 } }' "$1"
}

# Prints the command to run for a command of a guide. Prints nothing if it must not run; the reason goes to stderr.
within_budget() {
  local line=${1%%  #*}
  case $line in
    './dev docs-check'*) echo "not run (it would call itself): $1" >&2 ;;
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
    [ -f "$guide" ] || die "there is no guide '$guide': name a file such as docs/stgctl.md"
    count=0
    printf 'set -euo pipefail\n' >"$script"
    end=""
    while IFS= read -r line; do
      # Lines of a here-document are input of a command, not commands.
      if [ -n "$end" ]; then
        printf '%s\n' "$line" >>"$script"
        [ "$line" != "$end" ] || end=""
        continue
      fi
      [[ $line =~ \<\<\'([A-Z]+)\' ]] && end=${BASH_REMATCH[1]}
      run=$(within_budget "$line")
      [ -n "$run" ] || continue
      count=$((count + 1))
      # "# ends with N" in the guide states an exit code other than 0.
      if [[ $line =~ '# ends with '([0-9]+) ]]; then
        run="code=0; { $run; } || code=\$?; [ \$code -eq ${BASH_REMATCH[1]} ]"
      fi
      printf 'printf "%%s\\n" %q\n%s\n' "+ $run" "$run" >>"$script"
    done < <(commands_of "$guide")
    [ "$count" -gt 0 ] || continue
    say "$guide: $count commands"
    TMPDIR=$scratch bash "$script" </dev/null || die "a command of $guide failed: see above"
    total=$((total + count))
  done
  [ "$total" -gt 0 ] || die "the guides contain no command: mark the fences of commands with 'sh'"
  say "$total commands of the guides work"
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
  *) die "unknown check '$1': use quick or commands" ;;
esac
