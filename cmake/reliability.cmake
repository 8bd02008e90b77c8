# The program of the long runs (./dev reliability), and a small selection of them as tests.

set(vu_reliability_sources ${VU_RELIABILITY_SOURCES})
if(WIN32)
  list(APPEND vu_reliability_sources ${VU_RELIABILITY_SOURCES_WINDOWS})
else()
  list(APPEND vu_reliability_sources ${VU_RELIABILITY_SOURCES_POSIX})
endif()

# The second reader of an index is a library of its own, for the sake of the checksum's header.
list(REMOVE_ITEM vu_reliability_sources tests/reliability/index_reader.cpp)
add_library(vu_index_reader STATIC tests/reliability/index_reader.cpp)
vu_own_code(vu_index_reader)
target_include_directories(vu_index_reader PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(vu_index_reader PRIVATE vu_xxhash)

# Operations that meet, call by call.
set(vu_meetings_sources ${VU_MEETINGS_SOURCES} ${VU_MEETINGS_SOURCES_WITH_CLIENT})
if(WIN32)
  list(APPEND vu_meetings_sources ${VU_ADMIN_SOURCES_WINDOWS})
else()
  list(APPEND vu_meetings_sources ${VU_ADMIN_SOURCES_POSIX})
endif()
add_library(vu_meetings OBJECT ${vu_meetings_sources})
vu_test_code(vu_meetings -O1 PRECOMPILED_BY vu_test_model)
target_link_libraries(vu_meetings PUBLIC vu_storage_testable)
vu_test_program(meetings_tests
  SOURCES ${VU_MEETINGS_TEST_SOURCES} tests/reliability/folder_state.cpp
  LINK vu_meetings vu_test_support_inside vu_index_reader
  SHARDS 6 TIMEOUT 60 COST 9 LABELS reliability)
# The races are stories of the page that tells them.
target_compile_definitions(meetings_tests PRIVATE VU_TEST_DOCS="${PROJECT_SOURCE_DIR}/docs")

add_executable(reliability ${vu_reliability_sources})
vu_program(reliability)
vu_test_code(reliability -O1 PRECOMPILED_BY vu_test_model)
target_link_libraries(reliability PRIVATE
  vu_meetings vu_test_support_inside vu_test_model vu_index_reader vu_gtest)
target_link_options(reliability PRIVATE ${vu_quick_linker})
# One of the suites compares what it calls with what the headers declare.
target_compile_definitions(reliability PRIVATE VU_INCLUDE_FOLDER="${PROJECT_SOURCE_DIR}/include")

# A suite that cannot run here says so and counts as skipped. The kill suites work on the disk that holds
# the build folder, the others in memory.
function(vu_reliability_test suite count)
  add_test(NAME reliability_${suite} COMMAND reliability ${suite} --count ${count})
  # The longest begin first: none should run on alone at the end.
  set_tests_properties(reliability_${suite} PROPERTIES COST 20
    TIMEOUT 600 LABELS reliability SKIP_RETURN_CODE 77 WORKING_DIRECTORY ${vu_test_folder})
endfunction()

# <suite> <count, native> <count, cross-built>; 0 is everything there is, "-" leaves it to long runs.
set(vu_reliability_selection
  "alarms 0 70"
  "alarms-noticed 1 1"
  "checkers 0 0"
  "clean-crowd 300 30"
  "crowd 800 160"
  "crowd-noticed 50 20"
  "faults 1200 60"
  "faults-noticed 0 0"
  "first-initialisation 2000 200"
  "full-disk 240 0"
  "handles 1000 10"
  "hostile-index 1024 -"
  "hostile-index-noticed 1 1"
  "kill-each-call 400 12"
  "kill-each-call-noticed 0 60"
  "kills 160 12"
  "kills-mail 20 4"
  "kills-noticed 300 100"
  "kills-writing 80 3"
  "out-of-memory 1500 0"
  "out-of-memory-noticed 0 0"
  "power-cut 45 -"
  "power-cut-noticed 200 -"
  "power-loss 30000 400"
  "power-loss-noticed 0 0"
  "read-only 0 0"
  "sequences 2500 -"
  "sequences-noticed 40000 -"
  "short-writes 2000 60"
  "short-writes-noticed 0 0"
  "threads 320 32"
  "unheard 600 40")
foreach(entry IN LISTS vu_reliability_selection)
  separate_arguments(words UNIX_COMMAND "${entry}")
  list(GET words 0 suite)
  if(CMAKE_CROSSCOMPILING)
    list(GET words 2 count)
  else()
    list(GET words 1 count)
  endif()
  if(NOT count STREQUAL "-")
    vu_reliability_test(${suite} ${count})
  endif()
endforeach()

# The suites for two mounts (./dev shared), on two names of one local folder: what they check is checked here too.
if(NOT CMAKE_CROSSCOMPILING)
  file(MAKE_DIRECTORY ${vu_test_folder}/shared)
  file(CREATE_LINK ${vu_test_folder}/shared ${vu_test_folder}/shared-too SYMBOLIC)
  foreach(entry "shared-crowd 80" "shared-crowd-spread 80" "shared-crowd-noticed 50" "shared-killed-writer 4"
      "shared-killed-writer-noticed 1")
    separate_arguments(words UNIX_COMMAND "${entry}")
    vu_reliability_test(${words})
    list(GET words 0 suite)
    set_tests_properties(reliability_${suite} PROPERTIES ENVIRONMENT
      "VU_SHARED_A=${vu_test_folder}/shared;VU_SHARED_B=${vu_test_folder}/shared-too")
  endforeach()
endif()
