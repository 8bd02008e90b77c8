# Tries abi.cmake on stored dumps of another release: one with a function that is gone by now, one with a
# structure of another size, one with a field of another type.

cmake_minimum_required(VERSION 3.25)

function(finds what pattern by)
  file(READ ${STORED} text)
  string(REGEX REPLACE "${pattern}" "${by}" changed "${text}")
  if(changed STREQUAL text)
    message(FATAL_ERROR "${what}: the stored dump has nothing of that form")
  endif()
  file(WRITE ${SCRATCH}/stored.abi "${changed}")
  execute_process(COMMAND ${CMAKE_COMMAND} -D LIBRARY=${LIBRARY} -D ABIDW=${ABIDW} -D ABIDIFF=${ABIDIFF}
      -D STORED=${SCRATCH}/stored.abi -D SCRATCH=${SCRATCH}/run -P ${CMAKE_CURRENT_LIST_DIR}/abi.cmake
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
message(STATUS "all planted faults were found")
