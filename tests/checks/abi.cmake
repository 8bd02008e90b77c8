# Holds the C interface of the shared library against that of the last release: functions, their arguments,
# and the structures that they take, by abidiff (Debian's abigail-tools).
#
#   cmake -D LIBRARY=<file> -D ABIDW=<abidw> -D ABIDIFF=<abidiff> -D STORED=<file> -D SCRATCH=<folder>
#         -P abi.cmake
#
# What is new is told and passes; what a program of the last release would notice fails. With a release the
# dump that is left in SCRATCH becomes the stored one.

cmake_minimum_required(VERSION 3.25)

# ---- with SELF_TEST: the check itself, tried on injected faults
# Tries abi.cmake on stored dumps of another release: one with a function that is gone by now, one with a
# structure of another size, one with a field of another type.
if(SELF_TEST)
  function(finds what pattern by)
    file(READ ${STORED} text)
    string(REGEX REPLACE "${pattern}" "${by}" changed "${text}")
    if(changed STREQUAL text)
      message(FATAL_ERROR "${what}: the stored dump has nothing of that form")
    endif()
    file(WRITE ${SCRATCH}/stored.abi "${changed}")
    execute_process(COMMAND ${CMAKE_COMMAND} -D LIBRARY=${LIBRARY} -D ABIDW=${ABIDW} -D ABIDIFF=${ABIDIFF}
        -D STORED=${SCRATCH}/stored.abi -D SCRATCH=${SCRATCH}/run -P ${CMAKE_CURRENT_LIST_FILE}
      RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(result STREQUAL "0" OR NOT output MATCHES "would notice")
      message(FATAL_ERROR "${what} is not found:\n${output}")
    endif()
  endfunction()

  file(MAKE_DIRECTORY ${SCRATCH})
  finds("a function that is gone" "vu_latest" "vu_newest")
  finds("a structure of another size" "(<class-decl name='vu_document' size-in-bits=')[0-9]+" "\\1640")
  finds("a field at another place"
    "layout-offset-in-bits='192'(>[ \n]*<var-decl name='modified')" "layout-offset-in-bits='256'\\1")
  message(STATUS "all injected faults were found")
  return()
endif()

# ---- the check

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
