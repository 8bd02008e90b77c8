# Holds what the shared library exports, functions and data, against the list that is checked in: nothing
# is exported by accident, and nothing that programs link disappears unnoticed.
#
#   cmake -D LIBRARY=<file> -D NM=<nm> [-D OBJDUMP=<objdump>, for a DLL] [-D FILTER=<c++filt>]
#         -D LIST=<file> -D SCRATCH=<folder> -P exports.cmake
#
# A line of the list is "code" or "data", the linker's name, and for people the C++ name, which is not
# compared. The list as it should be is written to SCRATCH; after a change that is meant, copy it.

cmake_minimum_required(VERSION 3.25)

# ---- with SELF_TEST: the check itself, tried on injected faults
# Tries exports.cmake on the library with lists that are wrong in one line each. Takes the same arguments.
if(SELF_TEST)
  file(READ ${LIST} sound)
  set(wrong ${SCRATCH}/wrong.txt)

  # finds(<list> <words of the complaint>)
  function(finds text words)
    file(WRITE ${wrong} "${text}")
    if(text STREQUAL sound)
      message(FATAL_ERROR "no fault was injected for \"${words}\"")
    endif()
    execute_process(COMMAND ${CMAKE_COMMAND} -D LIBRARY=${LIBRARY} -D NM=${NM} -D OBJDUMP=${OBJDUMP}
      -D LIST=${wrong} -D SCRATCH=${SCRATCH}/wrong -P ${CMAKE_CURRENT_LIST_FILE}
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
  message(STATUS "all injected faults were found")
  return()
endif()

# ---- the check

function(tool result)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE code OUTPUT_VARIABLE output ERROR_VARIABLE messages)
  if(NOT code STREQUAL "0")
    message(FATAL_ERROR "${ARGN} failed: ${messages}")
  endif()
  # Brackets and semicolons mean something in CMake's lists.
  string(REGEX REPLACE "[][;]" " " output "${output}")
  set(${result} "${output}" PARENT_SCOPE)
endfunction()

# ---- what is exported --------------------------------------------------------------------------------

if(OBJDUMP)
  # A DLL names its exports without saying what they are; that is in its symbol table.
  tool(table ${OBJDUMP} -p ${LIBRARY})
  # Newer ones write the ordinal and a hint between the number and the name.
  string(REGEX MATCHALL
    "\n[ \t]+[0-9]+  (\\+base +[0-9]+   [0-9a-f]+ )?[A-Za-z_][^ \n]*" rows "${table}")
  set(names)
  foreach(row IN LISTS rows)
    string(REGEX REPLACE "^.* " "" name "${row}")
    list(APPEND names ${name})
  endforeach()
  tool(symbols ${NM} ${LIBRARY})
else()
  tool(symbols ${NM} -D --defined-only ${LIBRARY})
endif()

set(actual)
string(REGEX MATCHALL "[A-Za-z] [A-Za-z_][^ \n]*" symbols "${symbols}")
foreach(symbol IN LISTS symbols)
  string(REGEX MATCH "^(.) (.*)$" matched "${symbol}")
  set(name ${CMAKE_MATCH_2})
  if(CMAKE_MATCH_1 MATCHES "[TtWwi]")
    set(kind code)
  else()
    set(kind data)
  endif()
  if(NOT OBJDUMP OR name IN_LIST names)
    list(APPEND actual "${kind} ${name}")
  endif()
endforeach()
list(REMOVE_DUPLICATES actual)
list(SORT actual)
if(OBJDUMP)
  list(LENGTH names wanted)
  list(LENGTH actual got)
  if(wanted EQUAL 0)
    message(FATAL_ERROR "${OBJDUMP} tells no exports of ${LIBRARY} in a form that is known here")
  endif()
  if(NOT wanted EQUAL got)
    message(FATAL_ERROR "${LIBRARY}: ${wanted} exports, but symbols for ${got} of them; is it stripped?")
  endif()
endif()
if(NOT actual MATCHES "data ")
  message(FATAL_ERROR "${LIBRARY} exports no data, not even type information")
endif()

# ---- against the list --------------------------------------------------------------------------------

list(JOIN actual "\n" text)
cmake_path(GET LIST FILENAME list_name)
set(proposal ${SCRATCH}/${list_name})
file(WRITE ${proposal}.names "${text}\n")
if(FILTER)
  execute_process(COMMAND ${FILTER} INPUT_FILE ${proposal}.names OUTPUT_VARIABLE readable)
  string(REGEX REPLACE "[][]" " " readable "${readable}")
  string(REGEX REPLACE ";" "," readable "${readable}")
  string(REGEX REPLACE "\n" ";" readable "${readable}")
  set(text "")
  foreach(line people IN ZIP_LISTS actual readable)
    if(line STREQUAL "")
      break()
    endif()
    string(REGEX REPLACE "^(code|data) " "" people "${people}")
    string(APPEND text "${line}  ${people}\n")
  endforeach()
  file(WRITE ${proposal} "${text}")
endif()

set(expected)
if(EXISTS ${LIST})
  file(STRINGS ${LIST} lines REGEX "^(code|data) ")
  foreach(line IN LISTS lines)
    string(REGEX MATCH "^(code|data) [^ ]+" line "${line}")
    list(APPEND expected ${line})
  endforeach()
endif()
set(added ${actual})
list(REMOVE_ITEM added ${expected})
set(missing ${expected})
list(REMOVE_ITEM missing ${actual})
if(added OR missing)
  list(TRANSFORM added PREPEND "\n  new: ")
  list(TRANSFORM missing PREPEND "\n  gone: ")
  message(FATAL_ERROR "${LIBRARY} does not export what ${LIST} says:" ${added} ${missing}
    "\nIf that is meant: cp ${proposal} ${LIST}")
endif()
list(LENGTH actual count)
message(STATUS "${LIBRARY} exports the ${count} names of the list")
