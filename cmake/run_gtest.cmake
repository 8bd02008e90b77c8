# Runs one GoogleTest program, or one shard of it. Fails when a case fails or when no case ran.
#
#   cmake -D PROGRAM=<file> [-D EMULATOR=<command>] -D REPORTS=<folder>
#         [-D SHARDS=<n> -D SHARD=<i>] [-D LIMIT=<seconds>] [-D LIST_ONLY=ON] -P run_gtest.cmake
#
# Exit code 0 alone does not prove that cases ran: a program that exits early or filters out all cases returns it too.
# Therefore this script counts the cases in the report, which GoogleTest writes at the end.

cmake_minimum_required(VERSION 3.25)

cmake_path(GET PROGRAM STEM name)
set(limit "")
if(LIMIT)
  set(limit TIMEOUT ${LIMIT})
endif()

if(LIST_ONLY)
  execute_process(COMMAND ${EMULATOR} ${PROGRAM} --gtest_list_tests
    OUTPUT_VARIABLE listing RESULT_VARIABLE result ${limit})
  string(REGEX MATCHALL "\n  [^\n]+" cases "\n${listing}")
  list(LENGTH cases count)
  if(NOT result STREQUAL "0" OR count EQUAL 0)
    message(FATAL_ERROR "${name} lists no test case (exit code ${result}):\n${listing}")
  endif()
  message(STATUS "${name} has ${count} test cases")
  return()
endif()

set(report ${name}.xml)
if(SHARDS)
  set(ENV{GTEST_TOTAL_SHARDS} ${SHARDS})
  set(ENV{GTEST_SHARD_INDEX} ${SHARD})
  set(report ${name}_${SHARD}.xml)
endif()
file(REMOVE ${REPORTS}/${report})
string(REPLACE ".xml" ".log" log ${report})
# A relative path is the same for a Windows program and for CMake.
execute_process(
  COMMAND ${EMULATOR} ${PROGRAM} --gtest_output=xml:${report} --gtest_color=no
  WORKING_DIRECTORY ${REPORTS}
  OUTPUT_FILE ${REPORTS}/${log} ERROR_FILE ${REPORTS}/${log}
  RESULT_VARIABLE result
  ${limit})

# After a failure only the relevant part of the output is shown.
file(READ ${REPORTS}/${log} said)
if(NOT EXISTS ${REPORTS}/${report})
  string(LENGTH "${said}" length)
  if(length GREATER 4000)
    math(EXPR begin "${length} - 4000")
    string(SUBSTRING "${said}" ${begin} -1 said)
  endif()
  message(NOTICE "${said}")
  message(FATAL_ERROR "${name} ended without a report (${result}): see the end of its output above")
endif()
file(READ ${REPORTS}/${report} text)
string(REGEX MATCHALL "<testcase [^>]*status=\"run\"" ran "${text}")
string(REGEX MATCHALL "<testcase [^>]*result=\"skipped\"" skipped "${text}")
list(LENGTH ran ran)
list(LENGTH skipped skipped)
if(NOT result STREQUAL "0")
  string(REGEX REPLACE "\\[( RUN     | *OK|-+) *\\][^\n]*\n\n?" "" said "${said}")
  message(NOTICE "${said}")
  message(FATAL_ERROR "${name} failed (${result})")
endif()
if(ran EQUAL skipped)
  message(FATAL_ERROR "${name} ran no test case")
endif()
message(STATUS "${name}: ${ran} cases ran, ${skipped} of them skipped")
