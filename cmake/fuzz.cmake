# The fuzz targets (./dev fuzz): with Clang one program each, and with any compiler a test that runs the
# committed inputs through them.

set(vu_fuzz_corpus ${PROJECT_SOURCE_DIR}/tests/fuzz/corpus)

# Compiled once: each program has all targets, and the fuzzer is given one.
add_library(vu_fuzz_targets OBJECT ${VU_FUZZ_SOURCES})
vu_test_code(vu_fuzz_targets -O1 PRECOMPILED_BY vu_test_model)
target_link_libraries(vu_fuzz_targets PUBLIC vu_storage_testable)
target_include_directories(vu_fuzz_targets PUBLIC ${PROJECT_SOURCE_DIR})

if(VU_BUILD_FUZZERS)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES Clang)
    message(FATAL_ERROR "VU_BUILD_FUZZERS needs Clang (the preset linux-fuzz)")
  endif()
  add_custom_target(fuzzers)
  # As in REGISTER_FUZZ_TARGET;
  foreach(target IN LISTS VU_FUZZ_TARGETS)
    add_executable(fuzz-${target}
      tests/fuzz/libfuzzer.cpp tests/support/scratch.cpp tests/support/recording_sink.cpp)
    vu_program(fuzz-${target})
    target_link_libraries(fuzz-${target} PRIVATE vu_fuzz_targets vu_test_model)
    target_compile_definitions(fuzz-${target} PRIVATE VU_FUZZ_TARGET="${target}")
    target_link_options(fuzz-${target} PRIVATE -fsanitize=fuzzer)
    add_dependencies(fuzzers fuzz-${target})
  endforeach()
endif()

vu_test_program(fuzz_replay
  SOURCES tests/fuzz/replay_test.cpp
  LINK vu_fuzz_targets vu_test_model vu_test_support_inside
  SHARDS 1 TIMEOUT 60 COST 2 LABELS fuzz)
target_compile_definitions(fuzz_replay PRIVATE VU_FUZZ_CORPUS="${vu_fuzz_corpus}")
