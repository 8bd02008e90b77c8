# Every .cpp file of the project is listed in the CMakeLists.txt beside it, or in the nearest one above. A
# test file that nobody builds would look like a test that passes. (That a listed file exists, CMake checks.)
#
#   cmake -D ROOT=<project> -P sources_listed.cmake

cmake_minimum_required(VERSION 3.25)

# ---- with SELF_TEST: the check itself, tried on injected faults
# Tries sources_listed.cmake on a small tree, sound at first, then with one fault at a time.
if(SELF_TEST)
  set(tree ${SCRATCH}/tree)

  function(expect outcome library_list tests_list words)
    file(REMOVE_RECURSE ${tree})
    file(WRITE ${tree}/file/CMakeLists.txt "vu_library_sources(${library_list})\n")
    file(WRITE ${tree}/file/core.cpp "")
    file(WRITE ${tree}/file/deeper/other.cpp "")
    file(WRITE ${tree}/tests/unit/core_test.cpp "")
    if(tests_list)
      file(WRITE ${tree}/tests/unit/CMakeLists.txt "vu_test_program(unit\n  SOURCES ${tests_list})\n")
    endif()
    execute_process(COMMAND ${CMAKE_COMMAND} -D ROOT=${tree}
      -P ${CMAKE_CURRENT_LIST_FILE}
      RESULT_VARIABLE code OUTPUT_VARIABLE output ERROR_VARIABLE output)
    string(REGEX REPLACE "[ \n]+" " " output "${output}")
    string(FIND "${output}" "${words}" at)
    if((outcome STREQUAL "passes" AND NOT code STREQUAL "0")
        OR (outcome STREQUAL "fails" AND code STREQUAL "0") OR at EQUAL -1)
      message(FATAL_ERROR "'${library_list}', '${tests_list}' should be one that ${outcome} (\"${words}\"):\n${output}")
    endif()
  endfunction()

  set(library "core.cpp deeper/other.cpp")
  expect(passes "${library}" "core_test.cpp" "3 source files")
  expect(fails "core.cpp" "core_test.cpp" "file/deeper/other.cpp is not listed in file/CMakeLists.txt")
  expect(fails "score.cpp deeper/other.cpp" "core_test.cpp" "file/core.cpp is not listed")
  expect(fails "${library}" "core_test_cpp" "tests/unit/core_test.cpp is not listed")
  expect(fails "${library}\n  # core_test.cpp" "other_test.cpp # core_test.cpp" "core_test.cpp is not listed")
  expect(fails "${library}" "" "tests/unit/core_test.cpp: there is no CMakeLists.txt beside it")
  message(STATUS "all injected faults were found")
  return()
endif()

# ---- the check

set(faults)
set(found)
foreach(folder IN ITEMS platform file index storage examples client tests lab)
  file(GLOB_RECURSE files RELATIVE ${ROOT} ${ROOT}/${folder}/*.cpp)
  list(APPEND found ${files})
endforeach()
# A project of its own, which is built with compilers and tools of all kinds.
list(FILTER found EXCLUDE REGEX "^tests/consumer/")
if(NOT found)
  list(APPEND faults "there is no .cpp file below ${ROOT}")
endif()

foreach(file IN LISTS found)
  cmake_path(GET file PARENT_PATH room)
  while(room AND NOT EXISTS ${ROOT}/${room}/CMakeLists.txt)
    cmake_path(GET room PARENT_PATH room)
  endwhile()
  if(NOT room)
    list(APPEND faults "${file}: there is no CMakeLists.txt beside it")
    continue()
  endif()
  cmake_path(RELATIVE_PATH file BASE_DIRECTORY ${room} OUTPUT_VARIABLE name)
  file(READ ${ROOT}/${room}/CMakeLists.txt text)
  # Comments list nothing.
  string(REGEX REPLACE "#[^\n]*" "" text "${text}")
  string(REPLACE "." "\\." pattern "${name}")
  if(NOT text MATCHES "[ \n(]${pattern}[ \n)]")
    list(APPEND faults "${file} is not listed in ${room}/CMakeLists.txt")
  endif()
endforeach()

list(LENGTH found count)
if(faults)
  list(JOIN faults "\n  " faults)
  message(FATAL_ERROR "sources:\n  ${faults}")
endif()
message(STATUS "all ${count} source files are listed beside them")
