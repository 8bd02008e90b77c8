#!/usr/bin/env bash
# Counts instructions of the programs of ./dev bench under valgrind; prints Markdown: scripts/bench-instructions.sh
# Fails when a trace without a sink allocates or costs more than 20 instructions, or when a call through the C
# interface costs more than the exported class by more than 1,250 instructions and 5 %.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

programs=$BUILD/bench/release/bin
work=$BUILD/bench/instructions
mkdir -p "$work"

# Prints the instructions that the function measured() of the program "$@" executes. None is an error: then the function
# has another name, or the compiler has inlined it.
count() {
  local counted
  # With the dynamic linker's work done before, which would be a part of the first call.
  LD_BIND_NOW=1 valgrind --tool=callgrind --callgrind-out-file="$work/callgrind.out" --toggle-collect=measured "$@" \
    >"$work/log" 2>&1 || { tail -n 20 "$work/log" >&2; die "counting the instructions of '$*' failed: see above"; }
  counted=$(sed -nE 's/.*Collected : ([0-9]+).*/\1/p' "$work/log")
  [[ $counted =~ ^[1-9][0-9]*$ ]] || die "callgrind counted no instruction of measured() in '$*': see $work/log"
  echo "$counted"
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
# For two calls, two guarded names, a handle and a status; a list also calls back for each entry.
fixed=1250
echo "| instructions of one call | exported class | C interface | more | limit |"
echo "|---|--:|--:|--:|--:|"
dear=
for call in exists served over put read write text whole list latest; do
  # An assignment alone ends the script when count fails.
  class=$(count "$programs/storage_c_interface" "$call" class "$work/c-root")
  c=$(count "$programs/storage_c_interface" "$call" c "$work/c-root")
  class=$((class / 100)) c=$((c / 100))
  limit=$((class / 20 > fixed ? class / 20 : fixed))
  echo "| $call | $class | $c | $((c - class)) | $limit |"
  [ $((c - class)) -le "$limit" ] || dear+=" $call"
done
[ -z "$dear" ] || die "calls through the C interface cost too much more than those of the classes:$dear (see the table above)"
[ $((scope - nothing)) -le 20000 ] && [ $((record - scope)) -le 20000 ] ||
  die "a trace costs more than 20 instructions: see the table above"
