# Tries sources_listed.cmake on a small tree, sound at first, then with one fault at a time.

cmake_minimum_required(VERSION 3.25)

set(tree ${SCRATCH}/tree)

function(make_tree lists)
  file(REMOVE_RECURSE ${tree})
  file(WRITE ${tree}/cmake/sources.cmake "${lists}\n")
  file(WRITE ${tree}/file/core.cpp "")
  file(WRITE ${tree}/tests/unit/core_test.cpp "")
  file(WRITE ${tree}/tests/support/os_faults.cpp "")
endfunction()

function(expect outcome lists words)
  make_tree("${lists}")
  execute_process(COMMAND ${CMAKE_COMMAND} -D ROOT=${tree}
    -P ${CMAKE_CURRENT_LIST_DIR}/sources_listed.cmake
    RESULT_VARIABLE code OUTPUT_VARIABLE output ERROR_VARIABLE output)
  string(REGEX REPLACE "[ \n]+" " " output "${output}")
  string(FIND "${output}" "${words}" at)
  if((outcome STREQUAL "passes" AND NOT code STREQUAL "0")
      OR (outcome STREQUAL "fails" AND code STREQUAL "0") OR at EQUAL -1)
    message(FATAL_ERROR "'${lists}' should be one that ${outcome} (\"${words}\"):\n${output}")
  endif()
endfunction()

set(library "set(VU_LIBRARY_SOURCES file/core.cpp)\n")
set(test "set(VU_UNIT_TEST_SOURCES tests/unit/core_test.cpp)\n")
expect(passes "${library}${test}" "3 source files")
expect(fails "${library}" "tests/unit/core_test.cpp is in no list")
expect(fails "${library}${test}set(VU_EXAMPLES examples/hello.cpp)" "hello.cpp is listed but does")
expect(fails "${library}${test}set(VU_API_TEST_SOURCES file/core.cpp)" "core.cpp is listed twice")
message(STATUS "all planted faults were found")
