# Compares the C interface of the shared library with the last release: functions, arguments and structures.
# Uses abidiff (Debian: abigail-tools).
#
#   cmake -D LIBRARY=<file> -D ABIDW=<abidw> -D ABIDIFF=<abidiff> -D STORED=<file> -D SCRATCH=<folder>
#         -P abi.cmake
#
# Additions pass; an incompatible change fails. For a release, copy the dump in SCRATCH to STORED.

cmake_minimum_required(VERSION 3.25)

# SELF_TEST: stored dumps with a removed function, another structure size and another field offset must fail.
if(SELF_TEST)
  function(finds what pattern by)
    file(READ ${STORED} text)
    string(REGEX REPLACE "${pattern}" "${by}" changed "${text}")
    if(changed STREQUAL text)
      message(FATAL_ERROR "${what}: the pattern '${pattern}' does not match ${STORED}. Correct the self test.")
    endif()
    file(WRITE ${SCRATCH}/stored.abi "${changed}")
    execute_process(COMMAND ${CMAKE_COMMAND} -D LIBRARY=${LIBRARY} -D ABIDW=${ABIDW} -D ABIDIFF=${ABIDIFF}
        -D STORED=${SCRATCH}/stored.abi -D SCRATCH=${SCRATCH}/run -P ${CMAKE_CURRENT_LIST_FILE}
      RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(result STREQUAL "0" OR NOT output MATCHES "not compatible")
      message(FATAL_ERROR "${what} is not reported. Correct this check:\n${output}")
    endif()
  endfunction()

  file(MAKE_DIRECTORY ${SCRATCH})
  finds("a removed function" "vu_latest" "vu_newest")
  finds("a structure of another size" "(<class-decl name='vu_document' size-in-bits=')[0-9]+" "\\1640")
  finds("a field at another place"
    "layout-offset-in-bits='192'(>[ \n]*<var-decl name='modified')" "layout-offset-in-bits='256'\\1")
  message(STATUS "every injected fault was reported")
  return()
endif()

file(MAKE_DIRECTORY ${SCRATCH})
# Only the C interface is promised. The lists of exported names check the classes.
set(suppressions ${SCRATCH}/suppressions.ini)
file(WRITE ${suppressions} [[
[suppress_function]
  symbol_name_regexp = ^_Z
  drop = yes
[suppress_variable]
  symbol_name_regexp = ^_Z
  drop = yes
]])
set(dump ${SCRATCH}/vu_storage.abi)
execute_process(COMMAND ${ABIDW} --suppressions ${suppressions} --no-corpus-path --no-comp-dir-path
    --no-show-locs --no-elf-needed --exported-interfaces-only --load-all-types --out-file ${dump} ${LIBRARY}
  COMMAND_ERROR_IS_FATAL ANY)

# A dump without functions or arguments would always pass.
file(READ ${dump} text)
string(REGEX MATCHALL "<function-decl name='vu_[^>]*>[ \n]*<parameter" functions "${text}")
list(LENGTH functions count)
if(count LESS 40 OR NOT text MATCHES "<class-decl name='vu_document'")
  message(FATAL_ERROR "the dump of ${LIBRARY} has the arguments of only ${count} functions. Compile api/ with -g2.")
endif()

execute_process(COMMAND ${ABIDIFF} --no-added-syms ${STORED} ${dump}
  RESULT_VARIABLE result OUTPUT_VARIABLE report ERROR_VARIABLE report)
if(NOT result STREQUAL "0")
  message(FATAL_ERROR "the C interface is not compatible with the last release (abidiff: exit code ${result}):\n${report}\n"
    "Undo the change. For a new release: cp ${dump} ${STORED}")
endif()
message(STATUS "the C interface is compatible with the last release: ${count} functions with arguments")
