# Functions for a run on two mounts. Sourced by shared.sh and by the guest (lab/guest/inside.sh), never run.
#
# The caller defines: bin, the folder of the programs; VU_SHARED_A and VU_SHARED_B, the mounts; VU_SHARED_DIR, a
# scratch folder on a disk; and the functions say and note_result <part> <exit code>.

# run_suite <suite> [arguments...]: local files are in the run's scratch folder.
run_suite() {
  local status=0
  say "$1"
  "$bin/reliability" "$@" --scratch "$VU_SHARED_DIR/local" || status=$?
  note_result "$1" "$status"
}

# run_tests <program> [FILTER]: runs a test program with its folders on a mount.
run_tests() {
  local status=0 report=$VU_SHARED_DIR/local/$1.log
  say "$1 on a mount"
  mkdir -p "$VU_SHARED_A/tests"
  VU_TEST_TMP=$VU_SHARED_A/tests VU_TEST_ALARM=600 "$bin/$1" --gtest_brief=1 --gtest_filter="${2:-*}" \
    >"$report" 2>&1 || status=$?
  grep -qE '[1-9][0-9]* tests? from .* ran' "$report" || status=3 # the filter matches no test
  # The message of a failure follows its line.
  grep -E -A 5 '^\[  (FAILED|PASSED|SKIPPED)|tests? ran|: Failure' "$report" | tail -n 60 || true
  note_result "$1" "$status"
}

run_doctor() {
  local status=0
  say "stgctl doctor --shared"
  "$bin/stgctl" doctor --shared "$VU_SHARED_A" --peer "$VU_SHARED_B" || status=$?
  note_result doctor "$status"
}
