#!/usr/bin/env bash
# Runs the tests of build/linux-coverage and measures the coverage of file/, index/ and storage/. Writes a page per
# source to build/coverage and prints a line per folder. Fails when the coverage is below the required minimum.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
cd "$ROOT"

tree=$BUILD/linux-coverage
site=$BUILD/coverage
least_lines=98
least_branches=92

rm -rf "$site"
mkdir -p "$site/raw"
# %4m: at most four files for each program and library; all processes add to them. A killed process adds nothing.
export LLVM_PROFILE_FILE=$site/raw/%4m.profraw
say "running the tests"
quietly "$site/tests.log" "running the tests" ctest --preset linux-coverage --parallel "$JOBS" \
  --label-regex '^(unit|api|multi|reliability)$'
tail -n 3 "$site/tests.log"
# A test run injects only a selection of the faults of the suite "unheard"; here all of them are injected.
quietly "$site/unheard.log" "running all faults of the suite unheard" "$tree/bin/reliability" unheard --seed 1
tail -n 1 "$site/unheard.log"
llvm-profdata merge --sparse "$site"/raw/*.profraw -o "$site/all.profdata" ||
  die "llvm-profdata cannot merge the counters in $site/raw: see above"

objects=("$tree/bin/unit_tests" -object "$tree/bin/reliability" -object "$tree/lib/libvu_storage.so")
common=(-instr-profile="$site/all.profdata" "${objects[@]}" -ignore-filename-regex='/(include|platform|tests|tools)/|^/usr/')
llvm-cov show "${common[@]}" -format=html -output-dir="$site" -show-branches=count -show-line-counts-or-regions \
  -Xdemangler=c++filt -project-title="vu_storage" 2>"$site/show.log" || die "llvm-cov cannot write the pages: see $site/show.log"
llvm-cov report "${common[@]}" >"$site/report.txt" 2>"$site/report.log" ||
  die "llvm-cov cannot write the totals: see $site/report.log"

# Columns of a source's row in the report: 8 lines, 9 missed lines, 11 branches, 12 missed branches.
verdict=0
tell() {
  awk -v rooms="$1" -v least_l=$least_lines -v least_b=$least_branches '
    BEGIN { split(rooms, all, " "); for (i in all) wanted[all[i]] = 1 }
    { n = split($1, part, "/") }
    n > 1 && (part[n - 1] in wanted) { l += $8; ml += $9; b += $11; mb += $12 }
    END {
      if (l == 0 || b == 0) { print rooms ": no line or branch was counted"; exit 1 }
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
[ $verdict -eq 0 ] || die "coverage is below $least_lines % of lines or $least_branches % of branches: add tests (see above)"
