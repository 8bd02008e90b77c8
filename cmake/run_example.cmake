# Runs an example and holds its exit code and its output against what they should be.
#
#   cmake -D PROGRAM=<file> [-D EMULATOR=<command>] -D CODE=<exit code> -D TEXT=<part of the output>
#         -D LOG=<file> [-D FRESH=<folder>] [-D ARGUMENTS=<list>] -P run_example.cmake
#
# The output goes through the file LOG: what an example leaves running may hold a pipe open.

cmake_minimum_required(VERSION 3.25)

set(folder)
if(FRESH)
  file(REMOVE_RECURSE ${FRESH})
  set(folder ${FRESH})
endif()
execute_process(COMMAND ${EMULATOR} ${PROGRAM} ${folder} ${ARGUMENTS}
  RESULT_VARIABLE code OUTPUT_FILE ${LOG} ERROR_FILE ${LOG})
file(READ ${LOG} output)
string(FIND "${output}" "${TEXT}" at)
if(NOT code STREQUAL CODE OR at EQUAL -1)
  message(FATAL_ERROR "the exit code is ${code}, wanted is ${CODE} with \"${TEXT}\":\n${output}")
endif()
if(FRESH)
  message(STATUS "${output}")
endif()
