# An example shows one task, and is read at a glance: fewer than 80 lines.
#
#   cmake -D ROOT=<project> -P examples_short.cmake

cmake_minimum_required(VERSION 3.25)

include(${ROOT}/cmake/sources.cmake)
set(faults)
foreach(example IN LISTS VU_EXAMPLES)
  file(READ ${ROOT}/${example} text)
  string(REGEX MATCHALL "\n" lines "${text}")
  list(LENGTH lines count)
  if(count GREATER_EQUAL 80)
    list(APPEND faults "${example}: ${count} lines")
  endif()
endforeach()
list(LENGTH VU_EXAMPLES count)
if(faults OR count EQUAL 0)
  list(JOIN faults "\n  " faults)
  message(FATAL_ERROR "examples that are not short, of ${count}:\n  ${faults}")
endif()
message(STATUS "${count} examples are shorter than 80 lines")
