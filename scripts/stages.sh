# Functions of ./dev: each stage of long work is one line of output. Sourced after lib.sh, never run.
#
# On a terminal the line shows the progress, read from the counts of ninja and CTest in the log. Elsewhere the line
# is printed once, at the end. The output of the work goes to the log.

# Prints the last progress count of a log, such as "12/345".
count_in() { tail -c 2000 "$1" 2>/dev/null | grep -oE '[0-9]+/[0-9]+(\]| Test)' | tail -n 1 | grep -oE '^[0-9]+/[0-9]+' || true; }

show_progress() {
  local log=$1 what=$2 began=$SECONDS
  while sleep 1; do
    printf '\r\033[K== %s: %s %d s' "$what" "$(count_in "$log")" "$((SECONDS - began))"
  done
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
  local log=$1 what=$2 began=$SECONDS shower="" status=0 count
  shift 2
  mkdir -p "$(dirname "$log")"
  : >"$log"
  if [ -t 1 ]; then
    show_progress "$log" "$what" &
    shower=$!
  fi
  "$@" >"$log" 2>&1 || status=$?
  if [ -n "$shower" ]; then
    kill "$shower" 2>/dev/null || true
    wait "$shower" 2>/dev/null || true
    printf '\r\033[K'
  fi
  count=$(count_in "$log")
  [ "$status" -ne 0 ] || say "$what: ${count:+$count, }$((SECONDS - began)) s"
  return "$status"
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
