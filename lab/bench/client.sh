#!/usr/bin/env bash
# Measures stgctl over a large tree, and compares it with find(1) over the same tree in the same run.
#
#   lab/bench/client.sh STGCTL [ENTRIES [FOLDER]]
#
# Creates a tree of ENTRIES entries (1,000,000) below FOLDER (a temporary folder) unless it exists. Then runs each
# command ROUNDS times (5) in turn and discards the output. Prints the medians of elapsed time and CPU time in
# milliseconds:
#
#   find              find DIR
#   ls                stgctl ls
#   check --quick     stgctl check --quick
#   find -printf      find DIR -printf '%s %T@\n'
#   stats             stgctl stats
#
# Prints the peak memory of each stgctl command. Then measures `stgctl index snapshot` over the same tree without changes
# since the last snapshot, and compares it with cat(1) over the same indexes. The snapshot searches the indexes itself
# and flushes its file; cat gets the list of the indexes. All files are in the system's cache.
set -euo pipefail

stgctl=$(realpath "$1")
entries=${2:-1000000}
folder=${3:-}
rounds=${ROUNDS:-5}
own_folder=
if [ -z "$folder" ]; then
  folder=$(mktemp -d)
  own_folder=$folder
  trap 'rm -rf "$own_folder"' EXIT
fi
export LC_ALL=C
# With 1,000,000 entries each of the 20 owners has nearly 500 entries in each of 101 buckets.
owners=20

# Prints the files of the tree and writes its indexes. The names ascend; each document is in its hash bucket.
plan() {
  awk -v owners="$owners" -v entries="$entries" -v root="$folder/storage/docs" '
    BEGIN {
      for (i = 0; i < 256; ++i) code[sprintf("%c", i)] = i
      for (o = 0; o < owners; ++o) {
        split("", index_of); split("", count); split("", order); buckets = 0
        for (i = 0; i < entries / owners; ++i) {
          name = sprintf("Quarterly report %07d.kdc", i)
          h = code[substr(name, 1, 1)]
          for (c = 2; c <= length(name); ++c) h = (code[substr(name, c, 1)] + 31 * h) % 101
          bucket = sprintf("%s/owner%02d/%08d", root, o, h)
          if (!(bucket in count)) order[++buckets] = bucket
          number = sprintf("%08d", ++count[bucket])
          index_of[bucket] = index_of[bucket] name "_0000000000/" number "\n"
          print bucket "/" number ".kdc"
        }
        for (b = 1; b <= buckets; ++b) {
          system("mkdir -p " order[b])
          printf "%s", index_of[order[b]] > (order[b] "/index.dat")
          close(order[b] "/index.dat")
          printf "%08d", count[order[b]] > (order[b] "/index")
          close(order[b] "/index")
        }
      }
    }'
}

if [ ! -e "$folder/.complete-$entries" ]; then
  echo "making $entries entries below $folder" >&2
  mkdir -p "$folder"/storage/{docs,user,mail,list,semlets}
  plan >"$folder/files"
  xargs -d '\n' -a "$folder/files" touch
  touch "$folder/.complete-$entries"
fi

tree=$folder/storage
declare -A times cpu
TIMEFORMAT='%R %U %S'

# Adds the elapsed time and the CPU time of one run, in milliseconds.
run() {
  local name=$1 spent real user system
  shift
  spent=$({ time "$@" >/dev/null 2>"$folder/errors"; } 2>&1) || {
    cat "$folder/errors" >&2
    exit 1
  }
  read -r real user system <<<"$spent"
  times[$name]+="$(awk -v r="$real" 'BEGIN {print int(r * 1000 + 0.5)}') "
  cpu[$name]+="$(awk -v u="$user" -v s="$system" 'BEGIN {print int((u + s) * 1000 + 0.5)}') "
}

# The median of a list of numbers.
median() { tr ' ' '\n' <<<"$1" | sed '/^$/d' | sort -n | awk '{v[NR] = $1} END {print v[int((NR + 1) / 2)]}'; }

"$stgctl" --storage "$tree" status >/dev/null || {
  echo "$stgctl cannot read $tree" >&2
  exit 1
}
find "$tree" >/dev/null
find "$tree" -printf '%s\n' >/dev/null
for ((round = 0; round < rounds; ++round)); do
  run "find" find "$tree"
  run "ls" "$stgctl" --storage "$tree" ls
  run "check --quick" "$stgctl" --storage "$tree" check --quick
  run "find -printf" find "$tree" -printf '%s %T@\n'
  run "stats" "$stgctl" --storage "$tree" stats
done

# report <command> <yardstick>
report() {
  awk -v name="$1" -v other="$2" -v own="$(median "${times[$1]}")" -v base="$(median "${times[$2]}")" \
    -v own_cpu="$(median "${cpu[$1]}")" -v base_cpu="$(median "${cpu[$2]}")" 'BEGIN {
      printf "%-14s %6d ms (processor %5d)   %-13s %6d ms (processor %5d)   ratio %.2f (%.2f)\n",
        name, own, own_cpu, other, base, base_cpu, own / base, own_cpu / base_cpu}'
}
echo "$entries entries, median of $rounds rounds"
report "ls" "find"
report "check --quick" "find"
report "stats" "find -printf"

# Prints the peak resident memory of a command, as the kernel reports it.
peak() {
  python3 - "$@" <<'PYTHON' 2>/dev/null || echo unknown
import resource, subprocess, sys
subprocess.run(sys.argv[1:], stdout=subprocess.DEVNULL, check=False)
print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss, "KiB")
PYTHON
}
for command in "ls" "check --quick" "stats"; do
  # shellcheck disable=SC2086
  echo "peak memory of $command: $(peak "$stgctl" --storage "$tree" $command)"
done

# ---- the snapshot ---------------------------------------------------------------------------------

snapshots=$(mktemp -d "$folder/snapshots.XXXXXX")
trap 'rm -rf "$snapshots" "$own_folder"' EXIT
names=$snapshots/names
find "$tree" -name index.dat -print0 >"$snapshots/indexes"
read_all() { xargs -0 cat <"$snapshots/indexes"; }
save() { "$stgctl" --storage "$tree" index snapshot --names "$names"; }

read_all >/dev/null
run "first" save
bytes=$(stat -c %s "$names")
for ((round = 0; round < rounds; ++round)); do
  run cat read_all
  run snapshot save
done
after=$(stat -c %s "$names")

echo "$(tr -cd '\0' <"$snapshots/indexes" | wc -c) indexes of $(read_all | wc -c) bytes, median of $rounds rounds"
echo "first snapshot: ${times[first]}ms, $bytes bytes; each further one: $(((after - bytes) / rounds)) bytes"
report "snapshot" "cat"
