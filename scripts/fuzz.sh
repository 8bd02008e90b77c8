#!/usr/bin/env bash
# Runs fuzz targets that are built: scripts/fuzz.sh <folder of programs> <runs|-> <seconds|-> <merge|run> <target...>
# Each target starts from its committed inputs and from those that earlier runs found (build/fuzz/<target>),
# adds what it finds there, and says one line. An input that ends a run badly is kept in build/fuzz/findings.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

programs=$1 runs=$2 seconds=$3 what=$4
shift 4

# The largest input, in bytes: enough for every rule, small enough for thousands a second (whole operations: hundreds).
largest() {
  case $1 in
    index-text) echo 64 ;; # each line feed may make an entry of all the rest
    whole-operations) echo 256 ;;
    paths) echo 320 ;;
    *) echo 256 ;;
  esac
}

# Made for many small inputs: freed memory is kept apart for the length of some of them, not for that of a run, and
# an allocation is neither filled nor told with all its callers. A finding's input, run again without this, tells all.
export ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1:quarantine_size_mb=16:max_malloc_fill_size=0:malloc_context_size=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
# Targets that write files do so in memory where there is a place.
[ -n "${VU_TEST_TMP-}" ] || [ ! -w /dev/shm ] || export VU_TEST_TMP=/dev/shm

corpus_of() { echo "$ROOT/lab/fuzz/corpus/$1.txt"; }

# unpack <target> <folder>: a file for each line of its corpus.
unpack() {
  local line number=0
  rm -rf "$2"
  mkdir -p "$2"
  grep -v '^#' "$(corpus_of "$1")" | while IFS= read -r line; do
    number=$((number + 1))
    printf '%b' "$line" >"$2/$number"
  done
}

# pack <file>: the line that stands for it.
pack() {
  od -An -v -tu1 "$1" | awk '
    BEGIN { for (i = 32; i < 127; i++) text[i] = sprintf("%c", i)
            text[92] = "\\\\"; text[10] = "\\n"; text[13] = "\\r"; text[9] = "\\t" }
    { for (i = 1; i <= NF; i++) {
        byte = $i + 0
        printf "%s", (byte in text) && !(byte == 35 && !any) ? text[byte] : sprintf("\\x%02x", byte)
        any = 1 } }
    END { print "" }'
}

fuzz_one() {
  local target=$1
  local committed=$BUILD/fuzz/$target.committed found=$BUILD/fuzz/$target log=$BUILD/fuzz/$target.log
  unpack "$target" "$committed"
  local -a options=(-max_len="$(largest "$target")" -artifact_prefix="$BUILD/fuzz/findings/$target-"
    -print_final_stats=1 -timeout=60 -rss_limit_mb=4096)
  [ "$runs" = - ] || options+=(-runs="$runs")
  [ "$seconds" = - ] || options+=(-max_total_time="$seconds")
  mkdir -p "$found" "$BUILD/fuzz/findings"
  local begin=$SECONDS
  if ! "$programs/fuzz-$target" "${options[@]}" "$found" "$committed" >"$log" 2>&1; then
    grep -m 1 '^finding:' "$log" >&2 || true
    printf '%s: a FINDING after %s seconds; see %s\n' "$target" "$((SECONDS - begin))" "$log"
    return 1
  fi
  printf '%s: %s runs, 0 findings, %s seconds, %s inputs committed, %s found since\n' "$target" \
    "$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")" "$((SECONDS - begin))" \
    "$(find "$committed" -type f | wc -l)" "$(find "$found" -type f | wc -l)"
}

# As few inputs as reach everything that the committed ones and those found reach.
merge_one() {
  local target=$1
  local committed=$BUILD/fuzz/$target.committed found=$BUILD/fuzz/$target
  local merged=$BUILD/fuzz/$target.merged log=$BUILD/fuzz/$target.log corpus
  corpus=$(corpus_of "$target")
  unpack "$target" "$committed"
  rm -rf "$merged"
  mkdir -p "$merged" "$found"
  "$programs/fuzz-$target" -merge=1 -max_len="$(largest "$target")" "$merged" "$committed" "$found" \
    >"$log" 2>&1 || die "merging the inputs of $target failed; see $log"
  # The smallest ones first: a hundred are replayed by every test run, and reach nearly all.
  {
    sed '/^# Found/,$d' "$corpus"
    echo "# Found by the fuzzer."
    find "$merged" -type f -printf '%s %p\n' | sort -n | sed -n '1,90s/^[0-9]* //p' |
      while read -r input; do pack "$input"; done
  } >"$corpus.new"
  mv "$corpus.new" "$corpus"
  printf '%s: %s inputs reach everything, %s are kept in %s\n' "$target" \
    "$(find "$merged" -type f | wc -l)" "$(grep -vc '^#' "$corpus")" "lab/fuzz/corpus/$target.txt"
}

failed=""
for target in "$@"; do
  if [ "$what" = merge ]; then
    merge_one "$target"
  else
    fuzz_one "$target" || failed="$failed $target"
  fi
done
[ -z "$failed" ] || die "findings:$failed (the inputs are in build/fuzz/findings)"
