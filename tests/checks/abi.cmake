# Holds the C interface of the shared library against that of the last release: functions, their arguments,
# and the structures that they take, by abidiff (Debian's abigail-tools).
#
#   cmake -D LIBRARY=<file> -D ABIDW=<abidw> -D ABIDIFF=<abidiff> -D STORED=<file> -D SCRATCH=<folder>
#         -P abi.cmake
#
# What is new is told and passes; what a program of the last release would notice fails. With a release the
# dump that is left in SCRATCH becomes the stored one.

cmake_minimum_required(VERSION 3.25)

file(MAKE_DIRECTORY ${SCRATCH})
set(suppressions ${CMAKE_CURRENT_LIST_DIR}/abi/suppressions.ini)
set(dump ${SCRATCH}/vu_storage.abi)
execute_process(COMMAND ${ABIDW} --suppressions ${suppressions} --no-corpus-path --no-comp-dir-path
    --no-show-locs --no-elf-needed --exported-interfaces-only --load-all-types --out-file ${dump} ${LIBRARY}
  COMMAND_ERROR_IS_FATAL ANY)

# A dump without the functions, or without their arguments, would differ in nothing.
file(READ ${dump} text)
string(REGEX MATCHALL "<function-decl name='vu_[^>]*>[ \n]*<parameter" functions "${text}")
list(LENGTH functions count)
if(count LESS 40 OR NOT text MATCHES "<class-decl name='vu_document'")
  message(FATAL_ERROR "${LIBRARY} tells the arguments of ${count} functions only; was api/ compiled with -g2?")
endif()

execute_process(COMMAND ${ABIDIFF} --no-added-syms ${STORED} ${dump}
  RESULT_VARIABLE result OUTPUT_VARIABLE report ERROR_VARIABLE report)
if(NOT result STREQUAL "0")
  message(FATAL_ERROR "programs of the last release would notice (abidiff ended with ${result}):\n${report}\n"
    "If that is a new release: cp ${dump} ${STORED}")
endif()
message(STATUS "the C interface is that of the last release: ${count} functions with arguments")
