# The test programs and how CTest runs them.
#
# Natively every case is a test of its own, in a process of its own. A cross-built program starts too
# slowly for that: it runs whole, cut into as many shards as the program's entry here says. A program
# or a shard that ran no case fails either way.

include(GoogleTest)

set(vu_test_folder ${PROJECT_BINARY_DIR}/test-runs)
file(MAKE_DIRECTORY ${vu_test_folder})

# GoogleTest's macros take the optimiser four times as long as everything else, so the cases are compiled
# without it; what is tested is compiled as it is shipped, or with -O1 where the tests look inside.
set(vu_test_headers <gtest/gtest.h> ${vu_common_headers})
add_library(vu_test_main OBJECT ${VU_TEST_MAIN_SOURCES})
vu_test_code(vu_test_main -O0 PRECOMPILE ${vu_test_headers})
target_link_libraries(vu_test_main PRIVATE vu_gtest)

# The rules written a second time, without anything of the library.
add_library(vu_test_model OBJECT ${VU_MODEL_SOURCES})
vu_test_code(vu_test_model -O1 PRECOMPILE ${vu_common_headers})

# What test programs have in common: for those that link the library, and for those that look inside.
add_library(vu_test_support OBJECT ${VU_TEST_SUPPORT_SOURCES})
vu_test_code(vu_test_support -O0 PRECOMPILED_BY vu_test_main)
target_link_libraries(vu_test_support PUBLIC vu_storage::vu_storage PRIVATE vu_gtest)
add_library(vu_test_support_inside OBJECT ${VU_TEST_SUPPORT_SOURCES})
vu_test_code(vu_test_support_inside -O1 PRECOMPILED_BY vu_test_model)
target_link_libraries(vu_test_support_inside PUBLIC vu_storage_testable PRIVATE vu_gtest)

# Native cases of most programs make their folders in memory, which is a file system too: on a disk they wait for
# it, and take twice as long. "api" and "multi" work on the disk, as do the kills and cuts of the long runs.
set(vu_test_memory)
if(UNIX)
  execute_process(COMMAND test -d /dev/shm -a -w /dev/shm RESULT_VARIABLE vu_no_memory)
  if(vu_no_memory STREQUAL "0")
    set(vu_test_memory VU_TEST_TMP=/dev/shm)
  endif()
endif()

# vu_test_program(<name> SOURCES <file...> LINK <target...> SHARDS <n> TIMEOUT <seconds per case> COST <n>
#                 [LABELS <label...>] [ON_DISK])
# SHARDS: so many that none takes more than some seconds. COST: what costs most begins first, so that no test
# runs on alone at the end.
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

  set(run ${CMAKE_COMMAND}
    -D "PROGRAM=$<TARGET_FILE:${name}>" -D "EMULATOR=${CMAKE_CROSSCOMPILING_EMULATOR}"
    -D "REPORTS=${vu_test_folder}")
  set(script ${PROJECT_SOURCE_DIR}/cmake/run_gtest.cmake)
  if(CMAKE_CROSSCOMPILING)
    math(EXPR last "${arg_SHARDS} - 1")
    foreach(shard RANGE ${last})
      set(test ${name})
      if(arg_SHARDS GREATER 1)
        string(APPEND test _${shard})
      endif()
      add_test(NAME ${test} COMMAND ${run} -D SHARDS=${arg_SHARDS} -D SHARD=${shard}
        -D LIMIT=2800 -P ${script})
      set_tests_properties(${test} PROPERTIES
        TIMEOUT 1200 COST ${arg_COST} LABELS "${arg_LABELS}" WORKING_DIRECTORY ${vu_test_folder})
    endforeach()
  else()
    set(where ${vu_test_memory})
    if(arg_ON_DISK)
      set(where)
    endif()
    # The cases are asked for when CTest starts; a program that has none must not go unnoticed.
    gtest_discover_tests(${name}
      DISCOVERY_MODE PRE_TEST
      NO_PRETTY_TYPES
      DISCOVERY_TIMEOUT 60
      WORKING_DIRECTORY ${vu_test_folder}
      PROPERTIES TIMEOUT ${arg_TIMEOUT} COST ${arg_COST} LABELS "${arg_LABELS}" ENVIRONMENT "${where}")
    add_test(NAME ${name}_has_cases COMMAND ${run} -D LIST_ONLY=ON -P ${script})
    set_tests_properties(${name}_has_cases PROPERTIES TIMEOUT 60 LABELS "${arg_LABELS}")
  endif()
endfunction()

if(UNIX)
  list(APPEND VU_UNIT_TEST_SOURCES ${VU_UNIT_TEST_SOURCES_POSIX})
endif()
vu_test_program(unit_tests
  SOURCES ${VU_UNIT_TEST_SOURCES}
  LINK vu_test_support_inside
  SHARDS 11 TIMEOUT 60 COST 3 LABELS unit)
# The numbers of calls are read from the page that tells them.
target_compile_definitions(unit_tests PRIVATE VU_TEST_DOCS="${PROJECT_SOURCE_DIR}/docs")
vu_test_program(api_tests
  SOURCES ${VU_API_TEST_SOURCES}
  LINK vu_test_support
  SHARDS 2 TIMEOUT 60 COST 1 LABELS api ON_DISK)
vu_test_program(multi_tests
  SOURCES ${VU_MULTI_TEST_SOURCES}
  LINK vu_test_support
  SHARDS 2 TIMEOUT 180 COST 2 LABELS multi ON_DISK)
if(TARGET vu_admin)
  vu_test_program(admin_tests
    SOURCES ${VU_ADMIN_TEST_SOURCES}
    LINK vu_admin vu_test_support
    SHARDS 7 TIMEOUT 60 COST 4 LABELS admin)
endif()

set(vu_code_pages 932 1252)
set(vu_code_page_locales ja_JP de_DE)
if(CMAKE_CROSSCOMPILING)
  # Narrow names once more, under code pages that programs meet; Wine takes the page from the locale.
  foreach(page locale IN ZIP_LISTS vu_code_pages vu_code_page_locales)
    file(MAKE_DIRECTORY ${vu_test_folder}/code-page-${page})
    add_test(NAME code_page_${page} COMMAND ${CMAKE_COMMAND}
      -D "PROGRAM=$<TARGET_FILE:api_tests>" -D "EMULATOR=${CMAKE_CROSSCOMPILING_EMULATOR}"
      -D "REPORTS=${vu_test_folder}/code-page-${page}" -D LIMIT=110
      -P ${PROJECT_SOURCE_DIR}/cmake/run_gtest.cmake)
    set_tests_properties(code_page_${page} PROPERTIES TIMEOUT 300 LABELS api
      ENVIRONMENT "VU_WINE_LOCALE=${locale};VU_TEST_CODE_PAGE=${page};GTEST_FILTER=CodePage.*")
  endforeach()
endif()

if(VU_BUILD_CLIENT)
  set(vu_stgctl_tests ${VU_STGCTL_TEST_SOURCES} ${VU_STGCTL_TEXT_WITH_TESTS})
  if(WIN32)
    list(APPEND vu_stgctl_tests ${VU_STGCTL_TEST_SOURCES_WINDOWS})
  else()
    list(APPEND vu_stgctl_tests ${VU_STGCTL_TEST_SOURCES_POSIX})
  endif()
  vu_test_program(stgctl_tests
    SOURCES ${vu_stgctl_tests}
    LINK vu_test_support vu_admin vu_json
    SHARDS 23 TIMEOUT 180 COST 10 LABELS stgctl)
  target_compile_definitions(stgctl_tests PRIVATE VU_TEST_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  add_dependencies(stgctl_tests stgctl)
endif()

include(reliability)
include(fuzz)

if(VU_BUILD_EXAMPLES)
  include(example_tests)
endif()
