# The test programs and how CTest runs them.
#
# Natively each case is a separate CTest test with a separate process. A cross-built program starts too slowly for
# that, so it runs as a few shards; their number is the argument SHARDS. A program or shard that runs no case fails.

include(GoogleTest)

set(vu_test_folder ${PROJECT_BINARY_DIR}/test-runs)
file(MAKE_DIRECTORY ${vu_test_folder})

# Native cases of most programs create their folders in /dev/shm: on a disk they take twice as long. The programs
# api_tests and multi_tests use the disk, and so do the reliability suites that kill processes.
set(vu_test_memory)
if(UNIX)
  execute_process(COMMAND test -d /dev/shm -a -w /dev/shm RESULT_VARIABLE vu_no_memory)
  if(vu_no_memory STREQUAL "0")
    set(vu_test_memory VU_TEST_TMP=/dev/shm)
  endif()
endif()

# vu_gtest_run(<test> <program> <limit in seconds> [-D <definition>...]): a test that runs a program through
# run_gtest.cmake. At the limit the script ends the program and shows the end of its output. CTest's own timeout would
# show nothing, so it comes later.
function(vu_gtest_run test program limit)
  math(EXPR last_resort "${limit} + 100")
  add_test(NAME ${test} COMMAND ${CMAKE_COMMAND}
    -D "PROGRAM=$<TARGET_FILE:${program}>" -D "EMULATOR=${CMAKE_CROSSCOMPILING_EMULATOR}" -D LIMIT=${limit}
    ${ARGN} -P ${PROJECT_SOURCE_DIR}/cmake/run_gtest.cmake)
  set_tests_properties(${test} PROPERTIES TIMEOUT ${last_resort})
endfunction()

# vu_test_program(<name> SOURCES <file...> LINK <target...> SHARDS <n> TIMEOUT <seconds per case> COST <n>
#                 [LABELS <label...>] [ON_DISK])
# SHARDS: choose a number with which no shard takes more than a few seconds. COST: CTest starts the tests of the highest
# cost first, so that no long test runs alone at the end.
function(vu_test_program name)
  cmake_parse_arguments(arg "ON_DISK" "SHARDS;TIMEOUT;COST" "SOURCES;LINK;LABELS" ${ARGN})
  if(NOT arg_SOURCES)
    return()
  endif()
  add_executable(${name} ${arg_SOURCES})
  vu_program(${name})
  vu_test_code(${name} -O0 PRECOMPILED_BY vu_test_main)
  target_link_libraries(${name} PRIVATE ${arg_LINK} vu_test_main vu_gtest)
  target_link_options(${name} PRIVATE ${vu_quick_linker})

  if(CMAKE_CROSSCOMPILING)
    math(EXPR last "${arg_SHARDS} - 1")
    foreach(shard RANGE ${last})
      set(test ${name})
      if(arg_SHARDS GREATER 1)
        string(APPEND test _${shard})
      endif()
      vu_gtest_run(${test} ${name} 1100 -D SHARDS=${arg_SHARDS} -D SHARD=${shard}
        -D "REPORTS=${vu_test_folder}")
      set_tests_properties(${test} PROPERTIES
        COST ${arg_COST} LABELS "${arg_LABELS}" WORKING_DIRECTORY ${vu_test_folder})
    endforeach()
  else()
    set(where ${vu_test_memory})
    if(arg_ON_DISK)
      set(where)
    endif()
    # CTest reads the list of cases at its start. The test "has_cases" fails when the list is empty.
    gtest_discover_tests(${name}
      DISCOVERY_MODE PRE_TEST
      NO_PRETTY_TYPES
      DISCOVERY_TIMEOUT 60
      WORKING_DIRECTORY ${vu_test_folder}
      PROPERTIES TIMEOUT ${arg_TIMEOUT} COST ${arg_COST} LABELS "${arg_LABELS}" ENVIRONMENT "${where}")
    vu_gtest_run(${name}_has_cases ${name} 60 -D LIST_ONLY=ON)
    set_tests_properties(${name}_has_cases PROPERTIES LABELS "${arg_LABELS}")
  endif()
endfunction()
