#!/usr/bin/env bash
# Mutation tests: scripts/mutants.sh [MUTANT...] | list | fit
#
# Each section of lab/mutants/*.patches is a mutant, a known defect, and names the test that must detect it. First
# every named test must pass on a copy of the sources in build/mutants. Then each mutant is applied to the copy alone
# and built, and its test must fail. "list" prints the mutants; "fit" only checks that each applies to the sources and
# names an existing test program.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
cd "$ROOT"

work=$BUILD/mutants
copy=$work/source
tree=$copy/build/linux
# Much longer than a test takes. A test that hangs has detected the mutant as well.
limit=(timeout -k 5 120)

all_mutants() { sed -n 's/^Mutant: //p' lab/mutants/*.patches; }
# section <mutant>: prints its lines.
section() { awk -v name="$1" '/^Mutant: / { wanted = $2 == name } wanted' lab/mutants/*.patches; }
# header <What|Test> <mutant>
header() { section "$2" | sed -n "s/^$1: //p"; }
program_of() { header Test "$1" | cut -d' ' -f1; }
filter_of() { header Test "$1" | cut -d' ' -f2; }

twice=$(all_mutants | sort | uniq -d)
[ -z "$twice" ] || die "lab/mutants has two mutants with the name '$twice': rename one"

case ${1-} in
  list)
    all_mutants
    exit
    ;;
  fit)
    misfits=0
    programs=$(git grep -h -oE '^ *vu_test_program\([a-z_]+' -- '*CMakeLists.txt' | sed 's/.*(//')
    while read -r mutant; do
      section "$mutant" | git apply --check || {
        misfits=$((misfits + 1))
        echo "the mutant $mutant no longer fits the sources" >&2
      }
      program=$(program_of "$mutant")
      grep -qxF -e "$program" <<<"$programs" || {
        misfits=$((misfits + 1))
        echo "the mutant $mutant names the test program '$program', which no CMakeLists.txt declares" >&2
      }
    done < <(all_mutants)
    [ $misfits -eq 0 ] || die "faults in lab/mutants: $misfits (see above); update those sections"
    say "all $(all_mutants | wc -l) mutants fit the sources"
    exit
    ;;
esac

mutants=("$@")
[ $# -gt 0 ] || mapfile -t mutants < <(all_mutants)
for mutant in "${mutants[@]}"; do
  [ -n "$(section "$mutant")" ] || die "unknown mutant '$mutant': './dev mutants list' prints the mutants"
done

# An unchanged file keeps its modification time, so it is not compiled again.
copy_sources() {
  mkdir -p "$copy"
  git ls-files -z --cached --others --exclude-standard |
    rsync --archive --no-times --checksum --from0 --files-from=- ./ "$copy/"
}

build() { quietly "$work/build.log" "building $1" cmake --build "$tree" --parallel "$JOBS" --target "${@:2}"; }

# Runs the test of a mutant and prints the result: "passed", "failed", "hung", "ran nothing", or "ended with CODE".
result_of() {
  local log=$work/run.log code=0
  "${limit[@]}" "$tree/bin/$(program_of "$1")" --gtest_filter="$(filter_of "$1")" --gtest_brief=1 \
    >"$log" 2>&1 </dev/null || code=$?
  case $code in
    0) if grep -q '^\[  PASSED  \] [1-9]' "$log"; then echo passed; else echo "ran nothing"; fi ;;
    124 | 137) echo hung ;;
    *) if [ $code -gt 127 ] || grep -q '^\[  FAILED  \]' "$log"; then echo failed; else echo "ended with $code"; fi ;;
  esac
}

say "copying and building the sources as they are"
rm -rf "$work/mutant"
copy_sources
# With the client, because mutants of what it uses name its test program admin_tests.
(cd "$copy" && quietly "$work/configure.log" "configuring" cmake --preset linux \
  -D VU_BUILD_EXAMPLES=OFF -D VU_BUILD_CLIENT=ON)
mapfile -t programs < <(for mutant in "${mutants[@]}"; do program_of "$mutant"; done | sort -u)
build "the tests" "${programs[@]}"
for mutant in "${mutants[@]}"; do
  result=$(result_of "$mutant")
  [ "$result" = passed ] || die "without a mutant, the test $(header Test "$mutant") $result: see $work/run.log"
done
say "${#mutants[@]} tests pass without a mutant; now each test runs with its mutant"

# Restores the file that the mutant changed. Its new modification time makes the build compile it again.
take_out() { if [ -n "${mutant_file-}" ]; then cp "$ROOT/$mutant_file" "$copy/$mutant_file"; fi; }
trap take_out EXIT

missed=0
printf '%-36s %-9s %s\n' mutant result "what it does; the test"
for mutant in "${mutants[@]}"; do
  take_out
  mutant_file=$(section "$mutant" | sed -n 's,^+++ b/,,p')
  section "$mutant" | patch --quiet --strip=1 --directory="$copy" --no-backup-if-mismatch ||
    die "the mutant $mutant no longer fits the sources: update its diff in lab/mutants"
  build "the mutant $mutant" "$(program_of "$mutant")"
  result=$(result_of "$mutant")
  case $result in failed | hung) ;; *) missed=$((missed + 1)) ;; esac
  printf '%-36s %-9s %s; %s\n' "$mutant" "$result" "$(header What "$mutant")" "$(filter_of "$mutant")"
done
[ $missed -eq 0 ] || die "the tests did not detect $missed of ${#mutants[@]} mutants (see above): correct the tests"
say "the tests detect all ${#mutants[@]} mutants"
