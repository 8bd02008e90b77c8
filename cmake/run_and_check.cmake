# Runs a program and checks its exit code and its output.
#
#   cmake -D PROGRAM=<file> [-D EMULATOR=<command>] -D CODE=<exit code> -D TEXT=<part of the output>
#         -D LOG=<file> [-D FRESH=<folder>] [-D ARGUMENTS=<list>] -P run_and_check.cmake
#
# The output goes to the file LOG, because a process that outlives the program would keep a pipe open.

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
  message(FATAL_ERROR "the exit code is ${code}, expected ${CODE} and the text \"${TEXT}\" in this output:\n${output}")
endif()
if(FRESH)
  message(STATUS "${output}")
endif()
