# No line of a source is longer than 100 characters, comments included; but for tables, one row a line,
# between "// clang-format off" and "// clang-format on".
#
#   cmake -D ROOT=<project> -P columns.cmake

cmake_minimum_required(VERSION 3.25)

# ---- with SELF_TEST: the check itself, tried on injected faults
# Tries columns.cmake on a small tree: what is just short enough, and what is not.
if(SELF_TEST)
  set(tree ${SCRATCH}/tree)
  file(REMOVE_RECURSE ${tree})

  # tried(<line> <passes: TRUE or FALSE> [<words of the complaint>])
  function(tried line passes)
    file(WRITE ${tree}/client/core.cpp "int a;\n\n[${line}\nint b[3]; // ]\n")
    execute_process(COMMAND ${CMAKE_COMMAND} -D ROOT=${tree} -P ${CMAKE_CURRENT_LIST_FILE}
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
  return()
endif()

# ---- the check

set(width 100)

set(sources)
set(folders api bindings client examples file include index lab platform storage tests)
foreach(folder IN LISTS folders)
  set(files)
  foreach(kind IN ITEMS c cpp h hpp py)
    list(APPEND files ${ROOT}/${folder}/*.${kind})
  endforeach()
  file(GLOB_RECURSE found RELATIVE ${ROOT} ${files})
  list(APPEND sources ${found})
endforeach()
if(NOT sources)
  message(FATAL_ERROR "no source was found below ${ROOT}")
endif()

# Bytes are quickly searched; characters are counted only where there are too many bytes.
math(EXPR more "${width} + 1")
string(REPEAT "." ${more} too_long)
set(faults)
foreach(source IN LISTS sources)
  file(READ ${ROOT}/${source} text)
  if(NOT "\n${text}" MATCHES "\n[^\n]*${too_long}")
    continue()
  endif()
  # What would part or join the elements of a list.
  string(REGEX REPLACE "[][;\\]" "_" text "${text}")
  string(REPLACE "\n" ";" lines "${text}")
  set(number 0)
  set(is_table FALSE)
  foreach(line IN LISTS lines)
    if(line MATCHES "^// clang-format (off|on)$")
      string(COMPARE EQUAL "${CMAKE_MATCH_1}" off is_table)
    endif()
    math(EXPR number "${number} + 1")
    string(LENGTH "${line}" length)
    if(length GREATER width)
      # Every character of UTF-8 has one byte that is none of 80 to BF.
      string(HEX "${line}" bytes)
      string(REGEX REPLACE "(..)" "\\1 " bytes "${bytes}")
      string(REGEX MATCHALL "[0-7c-f]. " characters "${bytes}")
      list(LENGTH characters length)
    endif()
    if(length GREATER width AND NOT is_table)
      list(APPEND faults "${source}:${number} has ${length} columns")
    endif()
  endforeach()
endforeach()
if(faults)
  list(JOIN faults "\n  " text)
  message(FATAL_ERROR "at most ${width} columns are wanted:\n  ${text}\n")
endif()
list(LENGTH sources count)
message(STATUS "${count} sources keep to ${width} columns")
