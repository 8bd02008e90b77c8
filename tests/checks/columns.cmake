# No line of a source is longer than 100 characters, comments included; but for tables, one row a line,
# between "// clang-format off" and "// clang-format on".
#
#   cmake -D ROOT=<project> -P columns.cmake

cmake_minimum_required(VERSION 3.25)

set(width 100)

set(sources)
foreach(folder IN ITEMS client examples file include index lab platform storage tests)
  file(GLOB_RECURSE found RELATIVE ${ROOT} ${ROOT}/${folder}/*.cpp ${ROOT}/${folder}/*.h)
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
