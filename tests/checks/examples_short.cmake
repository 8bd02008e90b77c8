# An example shows one task in fewer than 80 lines.
#
#   cmake -D ROOT=<project> -P examples_short.cmake

cmake_minimum_required(VERSION 3.25)

# SELF_TEST: an example of 79 lines passes, one of 80 lines fails.
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
      message(FATAL_ERROR "wrong result for an example of ${lines} lines. Correct this check:\n${output}")
    endif()
  endforeach()
  message(STATUS "every injected fault was reported")
  return()
endif()

# The demonstration program may be long.
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
  message(FATAL_ERROR "examples must have fewer than 80 lines. Shorten these (${count} were checked):\n  ${faults}")
endif()
message(STATUS "${count} examples are shorter than 80 lines")
