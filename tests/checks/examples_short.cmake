# An example shows one task, and is read at a glance: fewer than 80 lines.
#
#   cmake -D ROOT=<project> -P examples_short.cmake

cmake_minimum_required(VERSION 3.25)

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
