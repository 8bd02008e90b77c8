# Runs a program and checks its exit code and its output.
#
#   cmake -D PROGRAM=<file> [-D EMULATOR=<command>] -D CODE=<exit code> -D TEXT=<part of the output>
#         -D LOG=<file> [-D FRESH=<folder>] [-D SPOILED=<folder>] [-D FULL=ON] [-D ARGUMENTS=<list>]
#         -P run_and_check.cmake
#
# SPOILED: FRESH becomes a copy of this folder in which no index can be opened: each is a folder.
# FULL: the standard output goes to a device that is full.
#
# The output goes to the file LOG, because a process that outlives the program would keep a pipe open.

cmake_minimum_required(VERSION 3.25)

set(folder)
if(FRESH)
  file(REMOVE_RECURSE ${FRESH})
  set(folder ${FRESH})
endif()
if(SPOILED)
  file(COPY ${SPOILED}/ DESTINATION ${FRESH})
  file(GLOB_RECURSE indexes ${FRESH}/index.dat)
  if(NOT indexes)
    message(FATAL_ERROR "there is no index to spoil below ${SPOILED}")
  endif()
  file(REMOVE ${indexes})
  file(MAKE_DIRECTORY ${indexes})
endif()
set(to ${LOG})
if(FULL)
  file(WRITE ${LOG} "")
  set(to /dev/full)
endif()
execute_process(COMMAND ${EMULATOR} ${PROGRAM} ${folder} ${ARGUMENTS}
  RESULT_VARIABLE code OUTPUT_FILE ${to} ERROR_FILE ${LOG})
file(READ ${LOG} output)
string(FIND "${output}" "${TEXT}" at)
if(NOT code STREQUAL CODE OR at EQUAL -1)
  message(FATAL_ERROR "the exit code is ${code}, expected ${CODE} and the text \"${TEXT}\" in this output:\n${output}")
endif()
if(FRESH)
  message(STATUS "${output}")
endif()
