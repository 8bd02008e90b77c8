#!/usr/bin/env bash
# Runs the unit and api tests of build/linux under valgrind's memcheck: scripts/valgrind.sh [GoogleTest filter]
# Fails when a test fails, memory leaks, or a test accesses memory that is invalid or has no value yet.
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
cd "$ROOT"

log=$BUILD/valgrind
rm -rf "$log"
mkdir -p "$log"
# Excluded: tests whose threads wait for each other's file locks. Valgrind runs one thread at a time, even while that
# thread waits in a system call. Also excluded: tests that replace system calls (seccomp) or the allocator.
without='*Wait*:*Threads*:*OsLinux*:Heap.*'
verdict=0
# Seconds; much longer than the slowest test takes under valgrind.
export VU_TEST_ALARM=1800

ran=""
for program in unit_tests api_tests; do
  filter="${1:-*}-$without"
  "$BUILD/linux/bin/$program" --gtest_list_tests --gtest_filter="$filter" >"$log/$program.list" ||
    die "$program cannot list its tests: see above"
  grep -q '^  ' "$log/$program.list" || continue
  ran="$ran $program"
  say "$program under valgrind (minutes)"
  # valgrind does not follow child processes: tests kill their helper processes on purpose.
  valgrind --leak-check=full --show-leak-kinds=definite,indirect,possible --errors-for-leak-kinds=definite,indirect,possible \
    --error-exitcode=99 --log-file="$log/$program.txt" \
    "$BUILD/linux/bin/$program" --gtest_brief=1 --gtest_filter="$filter" >"$log/$program.out" 2>&1 || verdict=1
  grep -E '^\[  (PASSED|FAILED)  \]' "$log/$program.out" || die "$program did not finish: see $log/$program.out"
  # A forked test may write summaries too; the last one belongs to the program.
  tac "$log/$program.txt" | grep -m 1 'ERROR SUMMARY' || die "valgrind printed no summary: see $log/$program.txt"
  # valgrind prints these lines only when memory is still in use at the end.
  for kind in definitely indirectly possibly; do
    tac "$log/$program.txt" | grep -m 1 "$kind lost" || true
  done
done
[ -n "$ran" ] || die "no test that can run under valgrind matches '$1': use a GoogleTest filter such as 'IndexSaving.*'"
[ $verdict -eq 0 ] || die "a test failed, or valgrind reports an error or a leak: see $log"
say "valgrind: no leak, no error"
