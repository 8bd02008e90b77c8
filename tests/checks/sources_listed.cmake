# Every .cpp file is listed in the nearest CMakeLists.txt, in its folder or above. Example of the risk: a test file
# that is not built looks like a test that passes. CMake itself checks that listed files exist.
#
#   cmake -D ROOT=<project> -P sources_listed.cmake

cmake_minimum_required(VERSION 3.25)

# SELF_TEST: a small tree without faults passes, with one fault it fails.
if(SELF_TEST)
  set(tree ${SCRATCH}/tree)

  set(others platform index storage api examples client lab)

  # expect(<passes|fails> <list of file/> <list of tests/unit> <words of the message> [folders that list nothing...])
  function(expect outcome library_list tests_list words)
    file(REMOVE_RECURSE ${tree})
    file(WRITE ${tree}/file/CMakeLists.txt "vu_library_sources(${library_list})\n")
    file(WRITE ${tree}/file/core.cpp "")
    file(WRITE ${tree}/file/deeper/other.cpp "")
    file(WRITE ${tree}/tests/unit/core_test.cpp "")
    # One source in each of the other folders.
    foreach(folder IN LISTS others)
      set(listed one.cpp)
      if(folder IN_LIST ARGN)
        set(listed)
      endif()
      file(WRITE ${tree}/${folder}/CMakeLists.txt "vu_library_sources(${listed})\n")
      file(WRITE ${tree}/${folder}/one.cpp "")
    endforeach()
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
      message(FATAL_ERROR "a tree with '${library_list}' and '${tests_list}': expected: ${outcome}, \"${words}\". Correct this check:\n${output}")
    endif()
  endfunction()

  set(library "core.cpp deeper/other.cpp")
  expect(passes "${library}" "core_test.cpp" "10 source files")
  expect(fails "core.cpp" "core_test.cpp" "file/deeper/other.cpp is not listed in file/CMakeLists.txt")
  expect(fails "score.cpp deeper/other.cpp" "core_test.cpp" "file/core.cpp is not listed")
  expect(fails "${library}" "core_test_cpp" "tests/unit/core_test.cpp is not listed")
  expect(fails "${library}\n  # core_test.cpp" "other_test.cpp # core_test.cpp" "core_test.cpp is not listed")
  foreach(folder IN LISTS others)
    expect(fails "${library}" "core_test.cpp" "${folder}/one.cpp is not listed in ${folder}/CMakeLists.txt" ${folder})
  endforeach()
  expect(fails "${library}" "" "tests/unit/core_test.cpp: no CMakeLists.txt in its folder or above")
  message(STATUS "every injected fault was reported")
  return()
endif()

set(faults)
set(found)
foreach(folder IN ITEMS platform file index storage api examples client tests lab)
  file(GLOB_RECURSE files RELATIVE ${ROOT} ${ROOT}/${folder}/*.cpp)
  list(APPEND found ${files})
endforeach()
# Separate projects, which other tests build.
list(FILTER found EXCLUDE REGEX "^tests/consumer/")
if(NOT found)
  list(APPEND faults "no .cpp file was found below ${ROOT}. Correct ROOT.")
endif()

foreach(file IN LISTS found)
  cmake_path(GET file PARENT_PATH room)
  while(room AND NOT EXISTS ${ROOT}/${room}/CMakeLists.txt)
    cmake_path(GET room PARENT_PATH room)
  endwhile()
  if(NOT room)
    list(APPEND faults "${file}: no CMakeLists.txt in its folder or above")
    continue()
  endif()
  cmake_path(RELATIVE_PATH file BASE_DIRECTORY ${room} OUTPUT_VARIABLE name)
  file(READ ${ROOT}/${room}/CMakeLists.txt text)
  # Ignore comments.
  string(REGEX REPLACE "#[^\n]*" "" text "${text}")
  string(REPLACE "." "\\." pattern "${name}")
  if(NOT text MATCHES "[ \n(]${pattern}[ \n)]")
    list(APPEND faults "${file} is not listed in ${room}/CMakeLists.txt")
  endif()
endforeach()

list(LENGTH found count)
if(faults)
  list(JOIN faults "\n  " faults)
  message(FATAL_ERROR "source files that are not built. Add them to the CMakeLists.txt:\n  ${faults}")
endif()
message(STATUS "all ${count} source files are listed in a CMakeLists.txt")
