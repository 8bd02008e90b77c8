# The examples, run as somebody who tries them would: the exit code and the last words of each.

# vu_example_test(<test> <example> <exit code> <text> [FRESH <folder>] [AFTER <test>] [ARGUMENTS <word...>])
# FRESH: a folder below test-runs that is removed first, and handed to the program as its first argument.
function(vu_example_test test example code text)
  cmake_parse_arguments(arg "" "FRESH;AFTER" "ARGUMENTS" ${ARGN})
  add_test(NAME example_${test} COMMAND ${CMAKE_COMMAND}
    -D "PROGRAM=$<TARGET_FILE:${example}_storage>" -D "EMULATOR=${CMAKE_CROSSCOMPILING_EMULATOR}"
    -D "CODE=${code}" -D "TEXT=${text}" -D "LOG=example_${test}.log"
    -D "FRESH=${arg_FRESH}" -D "ARGUMENTS=${arg_ARGUMENTS}"
    -P ${PROJECT_SOURCE_DIR}/cmake/run_example.cmake)
  set_tests_properties(example_${test} PROPERTIES
    TIMEOUT 300 LABELS example WORKING_DIRECTORY ${vu_test_folder} FIXTURES_SETUP example_${test})
  if(arg_AFTER)
    set_tests_properties(example_${test} PROPERTIES FIXTURES_REQUIRED example_${arg_AFTER})
  endif()
endfunction()

vu_example_test(hello hello 0 "Hello, storage!" FRESH example-hello)
vu_example_test(host_minimal host_minimal 0 "config: language = en" FRESH example-host)
vu_example_test(store_versions store_versions 0 "latest version of report.kdf is 20240331"
  FRESH example-versions)
vu_example_test(read_document read_document 0 "the report of 20240331" AFTER store_versions
  ARGUMENTS example-versions anna report.kdf)
vu_example_test(read_document_of_a_version read_document 0 "the report of 20240131" AFTER store_versions
  ARGUMENTS example-versions anna report.kdf 20240131)
vu_example_test(read_document_that_is_missing read_document 3 "anna has no report.kdf of 7"
  AFTER store_versions ARGUMENTS example-versions anna report.kdf 7)
vu_example_test(sub_parts_and_preload sub_parts_and_preload 0 "third:  <p>loaded ahead of time</p>"
  FRESH example-parts)
vu_example_test(custom_trace_sink custom_trace_sink 0 "traced to " FRESH example-traces)
vu_example_test(locked_document locked_document 0 "then read: all of the plan" FRESH example-locked)
vu_example_test(two_processes two_processes 0 "read: all of the plan" FRESH example-processes)
