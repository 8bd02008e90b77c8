#!/usr/bin/env bash
# Runs the unit and api tests of build/linux under valgrind's memcheck, each program whole: scripts/valgrind.sh
# [GoogleTest filter]. Ends with an error when memory is lost, or read before it is written or after it is free.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
cd "$ROOT"

log=$BUILD/valgrind
rm -rf "$log"
mkdir -p "$log"
# Not under it: threads that wait for each other's file locks (it runs one thread at a time, also while that call
# waits), tests that answer system calls themselves by a filter of the kernel or count memory by an allocator of their own.
without='*Wait*:*Threads*:*OsLinux*:Heap.*'
verdict=0
# Far more than the slowest test takes under it.
export VU_TEST_ALARM=1800

ran=""
for program in unit_tests api_tests; do
  filter="${1:-*}-$without"
  "$BUILD/linux/bin/$program" --gtest_list_tests --gtest_filter="$filter" | grep -q '^  ' || continue
  ran="$ran $program"
  say "$program under valgrind (minutes)"
  # What tests start by themselves is not followed: helper processes are killed on purpose.
  valgrind --leak-check=full --show-leak-kinds=definite,indirect,possible --errors-for-leak-kinds=definite,indirect,possible \
    --error-exitcode=99 --log-file="$log/$program.txt" \
    "$BUILD/linux/bin/$program" --gtest_brief=1 --gtest_filter="$filter" >"$log/$program.out" 2>&1 || verdict=1
  grep -E '^\[  (PASSED|FAILED)  \]' "$log/$program.out" || die "$program did not end; see $log/$program.out"
  # The last summaries are the program's own, not a forked test's.
  tac "$log/$program.txt" | grep -m 1 'ERROR SUMMARY' || die "valgrind said nothing; see $log/$program.txt"
  # Where not a byte is in use any more there is no such list.
  for kind in definitely indirectly possibly; do
    tac "$log/$program.txt" | grep -m 1 "$kind lost" || true
  done
done
[ -n "$ran" ] || die "no test that can run under valgrind is called '$1'"
[ $verdict -eq 0 ] || die "valgrind or a test found a fault; see $log"
say "valgrind: nothing lost, no error"
