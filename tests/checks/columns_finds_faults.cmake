# Tries columns.cmake on a small tree: what is just short enough, and what is not.

cmake_minimum_required(VERSION 3.25)

set(tree ${SCRATCH}/tree)
file(REMOVE_RECURSE ${tree})

# tried(<line> <passes: TRUE or FALSE> [<words of the complaint>])
function(tried line passes)
  file(WRITE ${tree}/client/core.cpp "int a;\n\n[${line}\nint b[3]; // ]\n")
  execute_process(COMMAND ${CMAKE_COMMAND} -D ROOT=${tree} -P ${CMAKE_CURRENT_LIST_DIR}/columns.cmake
    RESULT_VARIABLE code OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(passes AND NOT code STREQUAL "0" OR NOT passes AND code STREQUAL "0")
    message(FATAL_ERROR "'${line}' should give ${passes}:\n${output}")
  endif()
  string(FIND "${output}" "${ARGN}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "'${ARGN}' is not said of '${line}':\n${output}")
  endif()
endfunction()

string(REPEAT "x" 99 just)
string(REPEAT "ä" 99 just_umlauts)
string(REPEAT "; " 50 too_many)
tried("${just}" TRUE)
tried("${just_umlauts}" TRUE)
tried("${just}x" FALSE "client/core.cpp:3 has 101 columns")
tried("${just_umlauts}ä" FALSE "client/core.cpp:3 has 101 columns")
tried("\n// clang-format off\n${just}${just}\n// clang-format on" TRUE)
tried("\n// clang-format off\n// clang-format on\n${just}xx" FALSE "client/core.cpp:6 has 101 columns")
tried("${too_many}" FALSE "client/core.cpp:3 has 101 columns")
