# Tries sources_listed.cmake on a small tree, sound at first, then with one fault at a time.

cmake_minimum_required(VERSION 3.25)

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
    -P ${CMAKE_CURRENT_LIST_DIR}/sources_listed.cmake
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
message(STATUS "all planted faults were found")
