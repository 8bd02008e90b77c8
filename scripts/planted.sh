#!/usr/bin/env bash
# Tests of the tests: scripts/planted.sh [defect...], or "list", or "fit"
#
# Each section of lab/planted/*.patches is a defect and names the test that has to notice it. In a copy of the sources
# every named test must pass; then each defect by itself is put in, built, and its test must fail. All is below
# build/planted. "list" names the defects; "fit" only tries whether each still fits the sources.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
cd "$ROOT"

work=$BUILD/planted
copy=$work/source
tree=$copy/build/linux
# Far more than any of the tests takes; one that hangs has noticed, too.
limit=(timeout -k 5 120)

all_defects() { sed -n 's/^Defect: //p' lab/planted/*.patches; }
# section <defect>: its lines, from "Defect:" to the next one.
section() { awk -v name="$1" '/^Defect: / { wanted = $2 == name } wanted' lab/planted/*.patches; }
# header <What|Test> <defect>
header() { section "$2" | sed -n "s/^$1: //p"; }

twice=$(all_defects | sort | uniq -d)
[ -z "$twice" ] || die "lab/planted has two defects of the name '$twice'"

case ${1-} in
  list)
    all_defects
    exit
    ;;
  fit)
    misfits=0
    while read -r defect; do
      section "$defect" | git apply --check || {
        misfits=$((misfits + 1))
        echo "the defect $defect does not fit the sources any more" >&2
      }
    done < <(all_defects)
    [ $misfits -eq 0 ] || die "$misfits planted defects do not fit: make them anew"
    say "all $(all_defects | wc -l) planted defects fit the sources"
    exit
    ;;
esac

defects=("$@")
[ $# -gt 0 ] || mapfile -t defects < <(all_defects)
for defect in "${defects[@]}"; do
  [ -n "$(section "$defect")" ] || die "there is no planted defect '$defect'; ./dev planted list names all"
done

program_of() { header Test "$1" | cut -d' ' -f1; }
filter_of() { header Test "$1" | cut -d' ' -f2; }

# A file whose content is the same keeps its time, and so what was built of it.
copy_sources() {
  mkdir -p "$copy"
  git ls-files -z --cached --others --exclude-standard |
    rsync --archive --no-times --checksum --from0 --files-from=- ./ "$copy/"
}

build() { quietly "$work/build.log" "building $1" cmake --build "$tree" --parallel "$JOBS" --target "${@:2}"; }

# Runs the test of a defect; says "passed", "failed", "hung", or what else became of it.
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
rm -rf "$work/defect"
copy_sources
(cd "$copy" && quietly "$work/configure.log" "configuring" cmake --preset linux -D VU_BUILD_EXAMPLES=OFF -D VU_BUILD_CLIENT=OFF)
mapfile -t programs < <(for defect in "${defects[@]}"; do program_of "$defect"; done | sort -u)
build "the tests" "${programs[@]}"
for defect in "${defects[@]}"; do
  result=$(result_of "$defect")
  [ "$result" = passed ] || die "without a defect, $(header Test "$defect") $result; see $work/run.log"
done
say "${#defects[@]} tests pass without a defect; each again with one"

# Puts the file of a defect back. Its new time makes it be built again.
take_out() { if [ -n "${planted-}" ]; then cp "$ROOT/$planted" "$copy/$planted"; fi; }
trap take_out EXIT

missed=0
printf '%-36s %-9s %s\n' defect result "what it does; the test"
for defect in "${defects[@]}"; do
  take_out
  planted=$(section "$defect" | sed -n 's,^+++ b/,,p')
  section "$defect" | patch --quiet --strip=1 --directory="$copy" --no-backup-if-mismatch ||
    die "the defect $defect does not fit the sources any more: make it anew"
  build "the defect $defect" "$(program_of "$defect")"
  result=$(result_of "$defect")
  case $result in failed | hung) ;; *) missed=$((missed + 1)) ;; esac
  printf '%-36s %-9s %s; %s\n' "$defect" "$result" "$(header What "$defect")" "$(filter_of "$defect")"
done
[ $missed -eq 0 ] || die "$missed of ${#defects[@]} planted defects were not noticed (see above)"
say "${#defects[@]} of ${#defects[@]} planted defects turn their test red"
