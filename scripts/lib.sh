# Functions of ./dev and the scripts; sourced, never run. The later sections are for ./dev only.
# Sets ROOT (the project's folder), BUILD (results), DEPS (prepared dependencies) and JOBS (parallel jobs).

set -euo pipefail

# With CDPATH, cd may print the folder or enter another one.
unset CDPATH
ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
BUILD=$ROOT/build
DEPS=$BUILD/deps
JOBS=$(nproc 2>/dev/null || echo 2)

say() { printf '== %s\n' "$*"; }

die() {
  printf 'error: %s\n' "$*" >&2
  exit 1
}

# Prints at most three lines of a log that show why a command failed: errors of the compiler, linker, CMake or apt;
# without such errors the last lines.
lines_that_matter() {
  awk '
    { sub(/\r$/, "") }
    /^[ \t]*$/ { next }
    { last[seen++ % 3] = $0 }
    # The pattern excludes "-Werror: ", a flag of a command line.
    /^CMake Error/ { follow = 3 }
    follow > 0 || /(^|[^-a-zA-Z])([Ee]rror|ERROR|fatal): |^E: |undefined reference|No space left/ {
      if (follow > 0) follow--
      if (found < 3) matter[found++] = $0
    }
    END {
      if (found == 0) {
        found = seen < 3 ? seen : 3
        for (i = 0; i < found; i++) matter[i] = last[(seen - found + i) % 3]
      }
      for (i = 0; i < found; i++) print substr(matter[i], 1, 300)
    }' "$1"
}

# Runs a command with its output in a log file. After a failure it prints the cause and ends the script.
# quietly <log file> <name of the work, for the error message> <command...>
quietly() {
  local log=$1 what=$2
  shift 2
  mkdir -p "$(dirname "$log")"
  if ! unlocked "$@" >"$log" 2>&1; then
    lines_that_matter "$log" >&2
    die "$what failed: see the output in $log"
  fi
}

# Runs a command without the descriptor of the step's lock: a server that outlives the command would keep the lock.
unlocked() (
  [ -z "${step_lock-}" ] || exec {step_lock}>&-
  "$@"
)

# Prints a short hash over the contents of the files. A missing file is an error.
content_key() { cat -- "$@" | sha256sum | cut -c1-16; }

# Takes the exclusive lock of a named step; a second process waits for it. The system releases the lock at the end
# of the process, so an interrupted run leaves no stale lock.
enter_step() {
  mkdir -p "$DEPS"
  exec {step_lock}>"$DEPS/.lock-$1"
  flock "$step_lock"
}

# Prints the machine's package sources for another Debian release, one per line, the main archive first. Example:
# "http://deb.debian.org/debian/ trixie".
# package_sources <bookworm|trixie>
package_sources() {
  local here
  here=$(. /etc/os-release && echo "${VERSION_CODENAME-}")
  {
    apt-get indextargets --format '$(REPO_URI) $(RELEASE)' 'Created-By: Packages' 2>/dev/null |
      sed -nE "s/ $here(-updates|-security)?\$/ $1\1/p"
    echo "http://deb.debian.org/debian/ $1"
  } | awk '!seen[$0]++ { print ($2 ~ /-/), NR, $0 }' | sort -k1,1n -k2,2n | cut -d' ' -f3-
}

# ---- stages of ./dev --------------------------------------------------------------------------------
#
# Each stage of long work is one line of output; a failed test run is three.
#
# On a terminal the line shows the progress, read from the counts of ninja and CTest in the log. Elsewhere the line
# is printed once, at the end. The output of the work goes to the log.

# Prints the last progress count of a log, such as "12/345".
count_in() { tail -c 2000 "$1" 2>/dev/null | grep -oE '[0-9]+/[0-9]+(\]| Test)' | tail -n 1 | grep -oE '^[0-9]+/[0-9]+' || true; }

show_progress() {
  local log=$1 what=$2 began=$SECONDS
  # $$ is the script also here, in the background: without the script nothing ends this loop.
  while sleep 1 && kill -0 $$ 2>/dev/null; do
    printf '\r\033[K== %s: %s %d s' "$what" "$(count_in "$log")" "$((SECONDS - began))"
  done
}

# The process that shows the progress. Ctrl-C does not end it: bash lets background processes ignore that signal.
shower=""
stop_shower() {
  [ -n "$shower" ] || return 0
  kill "$shower" 2>/dev/null || true
  wait "$shower" 2>/dev/null || true
  shower=""
  printf '\r\033[K'
}

# Runs a command with its output in a log. After a failure stage() prints the cause and ends the script;
# try_stage() returns the exit code.
# stage <log> <what> <command...>
stage() {
  try_stage "$@" || {
    lines_that_matter "$1" >&2
    die "$2 failed: see the output in $1"
  }
}

try_stage() {
  local log=$1 what=$2 began=$SECONDS status=0 count
  shift 2
  mkdir -p "$(dirname "$log")"
  : >"$log"
  if [ -t 1 ]; then
    show_progress "$log" "$what" &
    shower=$!
  fi
  "$@" >"$log" 2>&1 || status=$?
  stop_shower
  count=$(count_in "$log")
  [ "$status" -ne 0 ] || say "$what: ${count:+$count, }$((SECONDS - began)) s"
  return "$status"
}

# ---- failed tests ---------------------------------------------------------------------------------

# Reads the log of a failed CTest run. Prints two or three lines: the failed tests, and where and why the first failed.
# failed_tests <log>
failed_tests() {
  awk '
    BEGIN { most = 8 }
    { sub(/\r$/, "") }

    # The output of a test follows the line with its result and ends at the next line of CTest.
    /^ *[0-9]+\/[0-9]+ Test +#[0-9]+: / {
      inside = /\*\*\*/ && !/\*\*\*Skipped/ && first == ""
      if (inside) {
        first = $4
        result = $0
        sub(/.*\*\*\*/, "", result)
        sub(/ +[0-9.]+ sec.*/, "", result)
      }
      next
    }
    /^ +Start +[0-9]+: / { inside = 0; next }
    /^[0-9]+% tests passed/ { inside = 0; failed = $4; all = $NF; next }
    # CTest prints the list of skipped tests before this list; it is discarded.
    /^The following tests FAILED/ { named = 0; names = "" }
    /^\t *[0-9]+ - / {
      if (++named <= most) names = names (named > 1 ? ", " : "") $3
      next
    }
    !inside { next }

    # GoogleTest prints the place, the message up to an empty line, and the case. A reliability suite prints one line.
    /^\[  FAILED  \] / && place != "" && name == "" { name = $4 }
    /^\[/ || /^[ \t]*$/ { complete = place != ""; next }
    place == "" && /: Failure$/ { place = $0; next }
    place == "" && /^WRONG: / { place = $0; complete = 1; next }
    place != "" && !complete { sub(/^ +/, ""); message = message " " $0 }
    { last = $0 }

    END {
      printf "%s of %s tests failed: %s%s\n", failed, all, names, (named > most ? " ..." : "")
      printf "%s (%s): %s\n", name != "" ? name : first, result, substr(place != "" ? place : last, 1, 300)
      if (message != "") print " " substr(message, 1, 300)
    }' "$1"
}

# ---- tests that did not run -----------------------------------------------------------------------

# Prints "NAME<tab>REASON" for each test that a CTest run lists as "did not run". The reason is in the output of the
# test, which CTest writes to another log.
# tests_not_run <log> <CTest's LastTest.log>
tests_not_run() {
  awk '
    { sub(/\r$/, "") }
    part == "list" && /^The following tests did not run:/ { listed = 1; next }
    part == "list" && /^\t/ && listed {
      name = word = $0
      sub(/^\t *[0-9]+ - /, "", name)
      sub(/ \([^()]*\)$/, "", name)
      sub(/.* \(/, "", word)
      sub(/\)$/, "", word)
      print name "\t" (name in reason ? reason[name] : word)
      next
    }
    part == "list" { listed = 0; next }

    /^[0-9]+\/[0-9]+ Test: / { name = $0; sub(/^[^:]*: /, "", name); follows = 0; next }
    name in reason { next }
    # GoogleTest prints the place and then the reason; a reliability suite prints one line.
    follows && /[^ ]/ { sub(/^ +/, ""); reason[name] = $0 }
    { follows = /: Skipped$/ }
    /^[a-z0-9-]+: not run \(.*\)$/ { sub(/^[^(]*\(/, ""); sub(/\)$/, ""); reason[name] = $0 }' \
    part=outputs "$2" part=list "$1"
}

# Prints "NAME<tab>REASON" for each skipped case of GoogleTest's reports on its standard input.
skipped_cases() {
  awk '
    { sub(/\r$/, "") }
    /<testcase .* result="skipped"/ {
      name = class = $0
      sub(/.*<testcase name="/, "", name)
      sub(/".*/, "", name)
      sub(/.* classname="/, "", class)
      sub(/".*/, "", class)
      wanted = 1
      next
    }
    # The message begins with the place.
    wanted && /<skipped message="/ {
      reason = $0
      sub(/.*<skipped message="/, "", reason)
      sub(/".*/, "", reason)
      if (!sub(/^[^&]*&#x0A;/, "", reason) || reason ~ /^(&#x0A;)*$/) reason = "without a reason"
      sub(/&#x0A;.*/, "", reason)
      gsub(/&quot;/, "\"", reason)
      gsub(/&apos;/, "\047", reason)
      gsub(/&lt;/, "<", reason)
      gsub(/&gt;/, ">", reason)
      gsub(/&amp;/, "\\&", reason)
      print class "." name "\t" reason
      wanted = 0
    }'
}

# Reads lines "NAME<tab>REASON" and prints one line per reason with its names.
by_reason() {
  awk -F '\t' '
    !($2 in names) { order[++count] = $2 }
    { names[$2] = names[$2] (names[$2] == "" ? "" : ", ") $1 }
    END { for (i = 1; i <= count; i++) print "   " order[i] ": " names[order[i]] }'
}

# ---- work in the background -----------------------------------------------------------------------

beside_pid=""

# Starts a command in the background with its output in a log. Niceness 19 is the lowest priority.
# start_beside <niceness> <log> <command...>
start_beside() {
  local niceness=$1 log=$2
  shift 2
  mkdir -p "$(dirname "$log")"
  setsid nice -n "$niceness" "$@" >"$log" 2>&1 </dev/null &
  beside_pid=$!
}

# Waits for the background command and returns its exit code.
wait_beside() {
  local pid=$beside_pid
  beside_pid=""
  [ -z "$pid" ] || wait "$pid"
}

# Ends the background command. Ctrl-C does not reach it, because setsid gives it another process group.
stop_beside() {
  # Immediately after the start the process group may not exist yet; then only the process is ended.
  [ -z "$beside_pid" ] || kill -- "-$beside_pid" 2>/dev/null || kill "$beside_pid" 2>/dev/null || true
}
