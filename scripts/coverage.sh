#!/usr/bin/env bash
# Runs the tests of build/linux-coverage and tells what of file/, index/ and storage/ they executed: a page per
# source in build/coverage, a line each for the rooms. Ends with an error where less is executed than required.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
cd "$ROOT"

tree=$BUILD/linux-coverage
site=$BUILD/coverage
least_lines=98
least_branches=92

rm -rf "$site"
mkdir -p "$site/raw"
# One file per program, to which its processes add; what is killed adds nothing.
export LLVM_PROFILE_FILE=$site/raw/%4m.profraw
say "running the tests"
quietly "$site/tests.log" "running the tests" ctest --preset linux-coverage --parallel "$JOBS" \
  --label-regex '^(unit|api|multi|reliability)$'
tail -n 3 "$site/tests.log"
llvm-profdata merge --sparse "$site"/raw/*.profraw -o "$site/all.profdata" || die "the counters could not be read"

objects=("$tree/bin/unit_tests" -object "$tree/bin/reliability" -object "$tree/lib/libvu_storage.so")
common=(-instr-profile="$site/all.profdata" "${objects[@]}")
llvm-cov show "${common[@]}" -format=html -output-dir="$site" -show-branches=count -show-line-counts-or-regions \
  -Xdemangler=c++filt -project-title="vu_storage" file index storage || die "the pages could not be written"

# The totals of llvm-cov's table: of lines the columns 8 to 10, of branches 11 to 13.
totals() { llvm-cov report "${common[@]}" "$@" | sed -n 's/^TOTAL //p' | awk '{ print $7, $8, $10, $11 }'; }

verdict=0
tell() {
  local what=$1 lines missed_lines branches missed_branches
  shift
  read -r lines missed_lines branches missed_branches < <(totals "$@")
  awk -v what="$what" -v l="$lines" -v ml="$missed_lines" -v b="$branches" -v mb="$missed_branches" \
    -v least_l=$least_lines -v least_b=$least_branches 'BEGIN {
      if (l + 0 == 0 || b + 0 == 0) { print what ": nothing was counted"; exit 1 }
      pl = 100 * (l - ml) / l; pb = 100 * (b - mb) / b
      printf "%-30s %6.2f %% of %d lines, %6.2f %% of %d branches\n", what, pl, l, pb, b
      exit pl < least_l || pb < least_b
    }' || verdict=1
}
tell "file/" file
tell "index/" index
tell "storage/" storage
tell "file/, index/ and storage/" file index storage
say "pages: build/coverage/index.html"
[ $verdict -eq 0 ] || die "less than $least_lines % of lines or $least_branches % of branches (see above)"
