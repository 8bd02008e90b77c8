#!/usr/bin/env bash
# Counts instructions of the programs of ./dev bench under valgrind; prints Markdown: scripts/bench-instructions.sh
# Fails when a trace without a sink allocates or costs more than 20 instructions, or when a call through the C
# interface exceeds its limit.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

programs=$BUILD/bench/release/bin
work=$BUILD/bench/instructions
mkdir -p "$work"

# Prints the instructions that the function measured() of the program "$@" executes.
count() {
  valgrind --tool=callgrind --callgrind-out-file="$work/callgrind.out" --toggle-collect=measured "$@" \
    >"$work/log" 2>&1 || { tail -n 20 "$work/log" >&2; die "counting the instructions of '$*' failed: see above"; }
  sed -nE 's/.*Collected : ([0-9]+).*/\1/p' "$work/log"
}

per_thousand() { awk -v n="$1" 'BEGIN { printf "%.1f", n / 1000 }'; }

nothing=$(count "$programs/trace_cost" nothing)
scope=$(count "$programs/trace_cost" scope)
record=$(count "$programs/trace_cost" record)
echo "| without a trace sink | instructions | limit |"
echo "|---|--:|--:|"
echo "| a trace scope | $(per_thousand $((scope - nothing))) | 20 |"
echo "| a record | $(per_thousand $((record - scope))) | 20 |"
echo
echo "| instructions per entry | 1,000 entries | 10,000 entries |"
echo "|---|--:|--:|"
for operation in exists last list map load rewrite create remove; do
  line="| $operation |"
  for entries in 1000 10000; do
    instructions=$(count "$programs/storage_operations" "$operation" "$entries" "$work/folder")
    line+=" $((instructions / entries)) |"
  done
  echo "$line"
done
echo
echo "| instructions of one call | exported class | C interface | ratio | limit |"
echo "|---|--:|--:|--:|--:|"
dear=
for call in exists served over put read write text whole list latest; do
  # A handle and a status cost about 200 instructions, which is much for the call "text": it only writes a short text.
  case $call in text) limit=1.70 ;; *) limit=1.05 ;; esac
  class=$(count "$programs/storage_c_interface" "$call" class "$work/c-root")
  c=$(count "$programs/storage_c_interface" "$call" c "$work/c-root")
  times=$(awk -v c="$c" -v class="$class" 'BEGIN { printf "%.3f", c / class }')
  echo "| $call | $((class / 100)) | $((c / 100)) | $times | $limit |"
  awk -v times="$times" -v limit="$limit" 'BEGIN { exit times > limit }' || dear+=" $call"
done
[ -z "$dear" ] || die "calls through the C interface exceed their limit:$dear (see the table above)"
[ $((scope - nothing)) -le 20000 ] && [ $((record - scope)) -le 20000 ] ||
  die "a trace costs more than 20 instructions: see the table above"
