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
# The selection of a test run takes some of its faults; where nobody listens, all of them count.
quietly "$site/unheard.log" "running all faults unheard" "$tree/bin/reliability" unheard --seed 1
tail -n 1 "$site/unheard.log"
llvm-profdata merge --sparse "$site"/raw/*.profraw -o "$site/all.profdata" || die "the counters could not be read"

objects=("$tree/bin/unit_tests" -object "$tree/bin/reliability" -object "$tree/lib/libvu_storage.so")
common=(-instr-profile="$site/all.profdata" "${objects[@]}" -ignore-filename-regex='/(include|platform|tests|tools)/|^/usr/')
llvm-cov show "${common[@]}" -format=html -output-dir="$site" -show-branches=count -show-line-counts-or-regions \
  -Xdemangler=c++filt -project-title="vu_storage" 2>"$site/show.log" || die "the pages could not be written; see $site/show.log"
llvm-cov report "${common[@]}" >"$site/report.txt" 2>"$site/report.log" ||
  die "the totals could not be made; see $site/report.log"

# Of a source's row the columns 8 and 9 are lines and those not executed, 11 and 12 branches.
verdict=0
tell() {
  awk -v rooms="$1" -v least_l=$least_lines -v least_b=$least_branches '
    BEGIN { split(rooms, all, " "); for (i in all) wanted[all[i]] = 1 }
    { n = split($1, part, "/") }
    n > 1 && (part[n - 1] in wanted) { l += $8; ml += $9; b += $11; mb += $12 }
    END {
      if (l == 0 || b == 0) { print rooms ": nothing was counted"; exit 1 }
      gsub(" ", "/, ", rooms)
      pl = 100 * (l - ml) / l; pb = 100 * (b - mb) / b
      printf "%-24s %6.2f %% of %d lines, %6.2f %% of %d branches\n", rooms "/", pl, l, pb, b
      exit pl < least_l || pb < least_b
    }' "$site/report.txt" || verdict=1
}
tell file
tell index
tell storage
tell "file index storage"
say "pages: build/coverage/index.html"
[ $verdict -eq 0 ] || die "less than $least_lines % of lines or $least_branches % of branches (see above)"
