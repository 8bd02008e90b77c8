# Shared by ./dev: long work as stages, one line each. Sourced after lib.sh, never run.
#
# On a terminal the line of a stage tells how far it is (ninja's and CTest's own counts); elsewhere it is
# written once, at the end. What the work says goes to a log.

# The last "12/345" in a log.
count_in() { tail -c 2000 "$1" 2>/dev/null | grep -oE '[0-9]+/[0-9]+(\]| Test)' | tail -n 1 | grep -oE '^[0-9]+/[0-9]+' || true; }

show_progress() {
  local log=$1 what=$2 began=$SECONDS
  while sleep 1; do
    printf '\r\033[K== %s: %s %d s' "$what" "$(count_in "$log")" "$((SECONDS - began))"
  done
}

# Runs a command with its output in a log; ends here, with the lines that matter, when it fails. As try_stage
# it returns the exit code instead.
# stage <log> <what> <command...>
stage() {
  try_stage "$@" || {
    lines_that_matter "$1" >&2
    die "$2 failed; the whole output is in $1"
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

# ---- work beside other work -----------------------------------------------------------------------

beside_pid=""

# Starts a command with its output in a log. A niceness of 19 puts it behind everything else that wants a
# processor.
# start_beside <niceness> <log> <command...>
start_beside() {
  local niceness=$1 log=$2
  shift 2
  mkdir -p "$(dirname "$log")"
  setsid nice -n "$niceness" "$@" >"$log" 2>&1 </dev/null &
  beside_pid=$!
}

# Waits for it. @return its exit code.
wait_beside() {
  local pid=$beside_pid
  beside_pid=""
  [ -z "$pid" ] || wait "$pid"
}

# It has a process group of its own, which a Ctrl-C does not reach.
stop_beside() {
  # Its group is there a moment after it; before that it is by itself.
  [ -z "$beside_pid" ] || kill -- "-$beside_pid" 2>/dev/null || kill "$beside_pid" 2>/dev/null || true
}
