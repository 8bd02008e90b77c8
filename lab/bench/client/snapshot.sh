#!/usr/bin/env bash
# Measures `stgctl index snapshot` over a tree without changes since the last snapshot, and compares it with cat(1)
# over the same indexes in the same run.
#
#   lab/bench/client/snapshot.sh STGCTL FOLDER
#
# FOLDER contains the tree "storage"; lab/bench/client/tree.sh creates a large one. Runs both ROUNDS times (5) in turn
# and prints the medians of elapsed time and CPU time in milliseconds, and their ratio. All files are in the system's
# cache. The snapshot searches the indexes itself and flushes its file; cat gets the list of the indexes.
set -euo pipefail

stgctl=$(realpath "$1")
tree=$(realpath "$2")/storage
rounds=${ROUNDS:-5}
export LC_ALL=C
own_folder=$(mktemp -d "$2/snapshot-bench.XXXXXX")
trap 'rm -rf "$own_folder"' EXIT
names=$own_folder/names

find "$tree" -name index.dat -print0 >"$own_folder/indexes"
read_all() { xargs -0 cat <"$own_folder/indexes"; }
save() { "$stgctl" --storage "$tree" index snapshot --names "$names"; }

declare -A times cpu
TIMEFORMAT='%R %U %S'

# Adds the elapsed time and the CPU time of one run, in milliseconds.
run() {
  local name=$1 spent real user system
  shift
  spent=$({ time "$@" >/dev/null 2>"$own_folder/errors"; } 2>&1) || {
    cat "$own_folder/errors" >&2
    exit 1
  }
  read -r real user system <<<"$spent"
  times[$name]+="$(awk -v r="$real" 'BEGIN {print int(r * 1000 + 0.5)}') "
  cpu[$name]+="$(awk -v u="$user" -v s="$system" 'BEGIN {print int((u + s) * 1000 + 0.5)}') "
}

# The median of a list of numbers.
median() { tr ' ' '\n' <<<"$1" | sed '/^$/d' | sort -n | awk '{v[NR] = $1} END {print v[int((NR + 1) / 2)]}'; }

read_all >/dev/null
run first save
bytes=$(stat -c %s "$names")
for ((round = 0; round < rounds; ++round)); do
  run read read_all
  run snapshot save
done
after=$(stat -c %s "$names")

echo "$(tr -cd '\0' <"$own_folder/indexes" | wc -c) indexes of $(read_all | wc -c) bytes, median of $rounds rounds"
echo "first snapshot: ${times[first]}ms, $bytes bytes; each further one: $(((after - bytes) / rounds)) bytes"
awk -v own="$(median "${times[snapshot]}")" -v base="$(median "${times[read]}")" \
  -v own_cpu="$(median "${cpu[snapshot]}")" -v base_cpu="$(median "${cpu[read]}")" 'BEGIN {
    printf "%-14s %6d ms (processor %5d)   %-13s %6d ms (processor %5d)   ratio %.2f (%.2f)\n",
      "snapshot", own, own_cpu, "cat", base, base_cpu, own / base, own_cpu / base_cpu}'
