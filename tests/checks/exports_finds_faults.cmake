# Tries exports.cmake on the library with lists that are wrong in one line each. Takes the same arguments.

cmake_minimum_required(VERSION 3.25)

file(READ ${LIST} sound)
set(wrong ${SCRATCH}/wrong.txt)

# finds(<list> <words of the complaint>)
function(finds text words)
  file(WRITE ${wrong} "${text}")
  if(text STREQUAL sound)
    message(FATAL_ERROR "no fault was planted for \"${words}\"")
  endif()
  execute_process(COMMAND ${CMAKE_COMMAND} -D LIBRARY=${LIBRARY} -D NM=${NM} -D OBJDUMP=${OBJDUMP}
    -D LIST=${wrong} -D SCRATCH=${SCRATCH}/wrong -P ${CMAKE_CURRENT_LIST_DIR}/exports.cmake
    RESULT_VARIABLE code OUTPUT_VARIABLE output ERROR_VARIABLE output)
  string(REGEX REPLACE "[ \n]+" " " output "${output}")
  string(FIND "${output}" "${words}" at)
  if(code STREQUAL "0" OR at EQUAL -1)
    message(FATAL_ERROR "a list with a fault passes (\"${words}\"):\n${output}")
  endif()
endfunction()

string(REGEX MATCH "code ([^ ]+)[^\n]*\n" line "${sound}")
string(REPLACE "${line}" "" text "${sound}")
finds("${text}" "new: code ${CMAKE_MATCH_1}")
string(REGEX MATCH "data ([^ ]+)[^\n]*\n" line "${sound}")
set(name ${CMAKE_MATCH_1})
string(REPLACE "${line}" "" text "${sound}")
finds("${text}" "new: data ${name}")
string(REPLACE "${line}" "code ${name}\n" text "${sound}")
finds("${text}" "gone: code ${name}")
finds("${sound}code _Zmissing\n" "gone: code _Zmissing")
message(STATUS "all planted faults were found")
