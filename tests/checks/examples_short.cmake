# An example shows one task, and is read at a glance: fewer than 80 lines.
#
#   cmake -D ROOT=<project> -P examples_short.cmake

cmake_minimum_required(VERSION 3.25)

# ---- with SELF_TEST: the check itself, tried on injected faults
# Tries examples_short.cmake on an example of 79 lines and on one of 80.
if(SELF_TEST)
  foreach(pair IN ITEMS "79=0" "80=1")
    string(REGEX MATCH "^(.*)=(.*)$" matched ${pair})
    set(lines ${CMAKE_MATCH_1})
    set(wanted ${CMAKE_MATCH_2})
    string(REPEAT "//\n" ${lines} text)
    file(WRITE ${SCRATCH}/tree/examples/one.cpp "${text}")
    execute_process(COMMAND ${CMAKE_COMMAND} -D ROOT=${SCRATCH}/tree
      -P ${CMAKE_CURRENT_LIST_FILE}
      RESULT_VARIABLE code OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT code STREQUAL wanted)
      message(FATAL_ERROR "an example of ${lines} lines:\n${output}")
    endif()
  endforeach()
  message(STATUS "all injected faults were found")
  return()
endif()

# ---- the check

# The demonstration program is a large one.
file(GLOB examples RELATIVE ${ROOT} ${ROOT}/examples/*.cpp)
list(FILTER examples EXCLUDE REGEX "^examples/demo")
set(faults)
foreach(example IN LISTS examples)
  file(READ ${ROOT}/${example} text)
  string(REGEX MATCHALL "\n" lines "${text}")
  list(LENGTH lines count)
  if(count GREATER_EQUAL 80)
    list(APPEND faults "${example}: ${count} lines")
  endif()
endforeach()
list(LENGTH examples count)
if(faults OR count EQUAL 0)
  list(JOIN faults "\n  " faults)
  message(FATAL_ERROR "examples that are not short, of ${count}:\n  ${faults}")
endif()
message(STATUS "${count} examples are shorter than 80 lines")
