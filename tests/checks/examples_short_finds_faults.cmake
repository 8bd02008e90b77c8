# Tries examples_short.cmake on an example of 79 lines and on one of 80.

cmake_minimum_required(VERSION 3.25)

foreach(pair IN ITEMS "79=0" "80=1")
  string(REGEX MATCH "^(.*)=(.*)$" matched ${pair})
  set(lines ${CMAKE_MATCH_1})
  set(wanted ${CMAKE_MATCH_2})
  string(REPEAT "//\n" ${lines} text)
  file(WRITE ${SCRATCH}/tree/examples/one.cpp "${text}")
  execute_process(COMMAND ${CMAKE_COMMAND} -D ROOT=${SCRATCH}/tree
    -P ${CMAKE_CURRENT_LIST_DIR}/examples_short.cmake
    RESULT_VARIABLE code OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT code STREQUAL wanted)
    message(FATAL_ERROR "an example of ${lines} lines:\n${output}")
  endif()
endforeach()
message(STATUS "all planted faults were found")
