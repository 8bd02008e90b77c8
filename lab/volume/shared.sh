#!/usr/bin/env bash
# Runs the suites of docs/shared-storage.md with one tree and two hosts, on a replicated volume on this machine:
#   lab/volume/shared.sh BIN [--quick] [SUITE...]    BIN: the folder of the built programs
#   lab/volume/shared.sh BIN settings                prints a table of what each cache of the engine hides
# Everything runs in separate namespaces (network, processes, mounts). When their first process ends, all others end
# and the mounts disappear. The services of the machine are not affected.
. "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib.sh"
. "$(dirname "${BASH_SOURCE[0]}")/parts.sh"

volume_control=$ROOT/lab/volume/volume.sh

# ---- outside --------------------------------------------------------------------------------------

cannot() {
  printf './dev shared: not run: %s\n' "$1" >&2
  exit 77
}

check_machine() {
  [ "$(id -u)" -eq 0 ] || cannot "it needs root, for mounts and namespaces"
  [ -c /dev/fuse ] || cannot "it needs FUSE, but /dev/fuse is missing"
  local tool
  for tool in unshare glusterd glusterfs gluster; do
    command -v "$tool" >/dev/null || cannot "'$tool' is not installed (scripts/packages.sh shared)"
  done
  unshare --mount --net --pid --fork true 2>/dev/null || cannot "the kernel does not allow namespaces here"
  getent hosts "$(hostname)" | grep -q '^127\.' ||
    cannot "the machine's host name must resolve to a loopback address"
}

# Mounts and processes of a run that still exist.
leftovers() {
  grep -F " $1/" /proc/mounts || true
  pgrep -a gluster | grep -F "$1/" || true
}

outside() {
  check_machine
  local folder left
  folder=$(mktemp -d "${TMPDIR:-/tmp}/vu-shared-XXXXXX")
  local child=""
  tidy() {
    trap - EXIT INT TERM
    # This ends everything in the namespaces.
    [ -z "$child" ] || kill -KILL "$child" 2>/dev/null || true
    [ -z "$child" ] || wait "$child" 2>/dev/null || true
    # A killed process takes a moment to end.
    local tries=50
    until left=$(leftovers "$folder") && [ -z "$left" ] || [ "$tries" -eq 0 ]; do
      tries=$((tries - 1))
      sleep 0.1
    done
    # The mounts disappeared with their namespace; rm must not enter one that did not.
    rm -rf --one-file-system "$folder"
    [ -z "$left" ] || die "left behind: $left"
  }
  trap tidy EXIT
  trap 'exit 130' INT
  trap 'exit 143' TERM
  unshare --mount --net --pid --fork --kill-child --mount-proc \
    "${BASH_SOURCE[0]}" --inside "$folder" "$@" &
  child=$!
  local status=0
  wait "$child" || status=$?
  child=""
  tidy
  exit "$status"
}

# ---- inside ---------------------------------------------------------------------------------------

# Replaces the fixed folders of the daemons by folders in the scratch folder. Their sockets are in /run itself.
take_folders() {
  local pair
  for pair in lib:/var/lib/glusterd log:/var/log/glusterfs run:/run; do
    mkdir -p "$VU_SHARED_DIR/${pair%%:*}" "${pair#*:}"
    mount --bind "$VU_SHARED_DIR/${pair%%:*}" "${pair#*:}"
  done
  mkdir -p /run/gluster
}

start_volume() {
  ip link set lo up 2>/dev/null || ifconfig lo up || die "cannot start the loopback device"
  take_folders
  "$volume_control" start
  "$volume_control" mount a
  "$volume_control" mount b
  export VU_SHARED_A=$VU_SHARED_DIR/a VU_SHARED_B=$VU_SHARED_DIR/b VU_SHARED_CONTROL=$volume_control
}

failed=""
note_result() {
  [ "$2" -eq 0 ] || failed="$failed $1"
}

all_parts=(doctor api_tests multi_tests shared-crowd shared-crowd-spread shared-crowd-noticed shared-killed-writer
  shared-killed-writer-noticed shared-brick shared-cut-off shared-cost)

run_parts() {
  local part
  local -a less=()
  for part in "$@"; do
    less=()
    case $part in
      doctor) run_doctor ;;
      *_tests) run_tests "$part" ;;
      shared-crowd | shared-crowd-spread) [ -z "$quick" ] || less=(--count 160) ;;&
      shared-killed-writer) [ -z "$quick" ] || less=(--count 8) ;;&
      shared-brick | shared-cut-off) [ -z "$quick" ] || less=(--count 180) ;;&
      shared-*) run_suite "$part" "${less[@]}" ;;
      *) die "unknown part '$part'; use any of: ${all_parts[*]}" ;;
    esac
  done
  [ -z "$failed" ] || die "failed:$failed"
}

# ---- settings -------------------------------------------------------------------------------------

remount() {
  "$volume_control" unmount a
  "$volume_control" unmount b
  "$volume_control" mount a "$@"
  "$volume_control" mount b "$@"
}

# Prints one line: what the doctor reports as missing and, with a second argument, whether a small crowd lost anything.
try_settings() {
  local missing crowd=passed
  missing=$("$bin/stgctl" doctor --shared "$VU_SHARED_A" --peer "$VU_SHARED_B" |
    awk '$2 == "MISSING" { printf "%s%s", sep, $1; sep = ", " }') || true
  [ -n "${2-}" ] || crowd="not tried"
  [ -z "${2-}" ] || "$bin/reliability" shared-crowd --count 24 --budget 120 --scratch "$VU_SHARED_DIR/local" >"$VU_SHARED_DIR/crowd.log" 2>&1 ||
    crowd="FAILED ($(grep -c '^WRONG' "$VU_SHARED_DIR/crowd.log") wrong, $(sed -n 's/^WRONG: //p' "$VU_SHARED_DIR/crowd.log" | head -n 1))"
  printf '| %s | %s | %s |\n' "$1" "${missing:-nothing}" "$crowd"
}

no_caches=(--attribute-timeout=0 --entry-timeout=0 --auto-invalidation=on)
caches=(quick-read io-cache stat-prefetch readdir-ahead write-behind open-behind read-ahead)

run_settings() {
  local each
  echo "| settings | the doctor reports as missing | a crowd of 2 x 4 processes |"
  echo "|---|---|---|"
  "$volume_control" recommend
  remount
  try_settings "all as recommended" crowd
  "$volume_control" reset
  remount --log-level=WARNING
  try_settings "all with the engine's defaults" crowd
  "$volume_control" reset
  remount "${no_caches[@]}"
  try_settings "volume with the engine's defaults, mount as recommended" crowd
  "$volume_control" recommend
  remount --log-level=WARNING
  try_settings "volume as recommended, mount with the engine's defaults" crowd
  for each in attribute-timeout=1 entry-timeout=1 auto-invalidation; do
    local -a less=()
    local option
    for option in "${no_caches[@]}"; do
      case $option in
        --"${each%%=*}"=*) [ "$each" = "${each%%=*}" ] || less+=("--$each") ;;
        *) less+=("$option") ;;
      esac
    done
    remount "${less[@]}"
    try_settings "as recommended, but ${each/auto-invalidation/auto-invalidation not set}" crowd
  done
  for each in "${caches[@]}"; do
    "$volume_control" recommend
    "$volume_control" set "performance.$each" on
    remount
    try_settings "as recommended, but performance.$each on"
  done
}

inside() {
  export VU_SHARED_DIR=$1
  bin=$2
  shift 2
  quick=""
  if [ "${1-}" = --quick ]; then
    quick=yes
    shift
  fi
  mkdir -p "$VU_SHARED_DIR/local"
  start_volume
  if [ "${1-}" = settings ]; then
    run_settings
    return
  fi
  [ $# -gt 0 ] || set -- "${all_parts[@]}"
  run_parts "$@"
}

if [ "${1-}" = --inside ]; then
  shift
  inside "$@"
else
  outside "$@"
fi
