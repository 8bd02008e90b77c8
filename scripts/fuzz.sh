#!/usr/bin/env bash
# Runs built fuzz targets: scripts/fuzz.sh <folder of programs> <runs|-> <seconds|-> <merge|run> <target...>
# Each target starts from its committed inputs and from the inputs of earlier runs in build/fuzz/<target>, adds new
# inputs there, and prints one line. An input that makes a target fail is kept in build/fuzz/findings.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

programs=$1 runs=$2 seconds=$3 what=$4
shift 4

# The largest input in bytes: enough for every rule, small enough for thousands of runs per second (whole-operations:
# hundreds).
largest() {
  case $1 in
    index-text) echo 64 ;; # each line feed may turn the whole rest into an entry
    whole-operations) echo 256 ;;
    paths) echo 320 ;;
    *) echo 256 ;;
  esac
}

# Settings for many small inputs: a small quarantine of freed memory, no filling of new memory, and only one caller
# per allocation. For the full report run the input of a finding again without these options.
export ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1:quarantine_size_mb=16:max_malloc_fill_size=0:malloc_context_size=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
# Targets that write files use memory when /dev/shm is writable.
[ -n "${VU_TEST_TMP-}" ] || [ ! -w /dev/shm ] || export VU_TEST_TMP=/dev/shm

corpus_of() { echo "$ROOT/lab/fuzz/corpus/$1.txt"; }

# unpack <target> <folder>: writes a file for each line of the corpus.
unpack() {
  local line number=0
  rm -rf "$2"
  mkdir -p "$2"
  grep -v '^#' "$(corpus_of "$1")" | while IFS= read -r line; do
    number=$((number + 1))
    printf '%b' "$line" >"$2/$number"
  done
}

# pack <file>: prints the file as a line of the corpus.
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

# Reduces the committed inputs and the new ones to the fewest that reach the same code.
merge_one() {
  local target=$1
  local committed=$BUILD/fuzz/$target.committed found=$BUILD/fuzz/$target
  local merged=$BUILD/fuzz/$target.merged log=$BUILD/fuzz/$target.log corpus
  corpus=$(corpus_of "$target")
  unpack "$target" "$committed"
  rm -rf "$merged"
  mkdir -p "$merged" "$found"
  "$programs/fuzz-$target" -merge=1 -max_len="$(largest "$target")" "$merged" "$committed" "$found" \
    >"$log" 2>&1 || die "merging the inputs of $target failed: see $log"
  # Keeps the 90 smallest. Every test run replays them; they reach nearly all the code.
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
[ -z "$failed" ] || die "findings in:$failed; run the inputs in build/fuzz/findings again"
