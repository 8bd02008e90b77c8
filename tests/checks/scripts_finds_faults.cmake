# Tries scripts.cmake on scripts with one fault each, and on one without.

cmake_minimum_required(VERSION 3.25)

# try(<what> <text of the script> <what must be said, or nothing>)
function(try what text expected)
  file(REMOVE_RECURSE ${SCRATCH}/tree)
  file(WRITE ${SCRATCH}/tree/scripts/lib.sh "say() { echo; }\n")
  file(WRITE ${SCRATCH}/tree/lab/room/tried.sh "${text}")
  execute_process(COMMAND ${CMAKE_COMMAND} -D ROOT=${SCRATCH}/tree -P ${CMAKE_CURRENT_LIST_DIR}/scripts.cmake
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
message(STATUS "all planted faults were found")
