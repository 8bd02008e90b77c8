# Every shell script can be parsed, and what it reads in with "." is there. Two roots are known: the folder of
# the script, as ${BASH_SOURCE[0]} or $here, and the project's, as $ROOT.

cmake_minimum_required(VERSION 3.25)

# ---- with SELF_TEST: the check itself, tried on injected faults
# Tries scripts.cmake on scripts with one fault each, and on one without.
if(SELF_TEST)
  # try(<what> <text of the script> <what must be said, or nothing>)
  function(try what text expected)
    file(REMOVE_RECURSE ${SCRATCH}/tree)
    file(WRITE ${SCRATCH}/tree/scripts/lib.sh "say() { echo; }\n")
    file(WRITE ${SCRATCH}/tree/lab/room/tried.sh "${text}")
    execute_process(COMMAND ${CMAKE_COMMAND} -D ROOT=${SCRATCH}/tree -P ${CMAKE_CURRENT_LIST_FILE}
      RESULT_VARIABLE code OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(expected STREQUAL "")
      if(NOT code STREQUAL "0")
        message(FATAL_ERROR "${what} is refused:\n${output}")
      endif()
    elseif(code STREQUAL "0" OR NOT output MATCHES "${expected}")
      message(FATAL_ERROR "${what} is not found:\n${output}")
    endif()
  endfunction()

  try("a good script" ". \"$(dirname \"\${BASH_SOURCE[0]}\")/../../scripts/lib.sh\"\n. \"$ROOT/scripts/lib.sh\"\n" "")
  try("a library beside that has moved" ". \"$(dirname \"\${BASH_SOURCE[0]}\")/lib.sh\"\n" "not there")
  try("a missing part" "if true; then\n  . \"$here/parts.sh\"\nfi\n" "not there")
  try("an unended quotation" "echo 'text\n" "unexpected EOF")
  message(STATUS "all injected faults were found")
  return()
endif()

# ---- the check

find_program(bash bash REQUIRED)
file(GLOB scripts LIST_DIRECTORIES false ${ROOT}/dev ${ROOT}/scripts/*.sh ${ROOT}/packaging/*.sh ${ROOT}/lab/*/*.sh)
list(LENGTH scripts count)
if(count EQUAL 0)
  message(FATAL_ERROR "there are no scripts in ${ROOT}")
endif()

set(wrong "")
foreach(script IN LISTS scripts)
  execute_process(COMMAND ${bash} -n ${script} RESULT_VARIABLE code ERROR_VARIABLE complaint)
  if(NOT code STREQUAL "0")
    string(APPEND wrong "  ${complaint}\n")
  endif()
  cmake_path(GET script PARENT_PATH folder)
  file(STRINGS ${script} lines REGEX "^ *\\. \"")
  foreach(line IN LISTS lines)
    string(REGEX REPLACE "^ *\\. \"(.*)\"$" "\\1" named "${line}")
    string(REPLACE "$(dirname \"\${BASH_SOURCE[0]}\")" "${folder}" path "${named}")
    string(REPLACE "$here" "${folder}" path "${path}")
    string(REPLACE "$ROOT" "${ROOT}" path "${path}")
    if(NOT EXISTS "${path}")
      string(APPEND wrong "  ${script} reads what is not there: ${named}\n")
    endif()
  endforeach()
endforeach()
if(wrong)
  message(FATAL_ERROR "scripts cannot run:\n\n${wrong}")
endif()
message(STATUS "${count} scripts can be parsed and find what they read")
