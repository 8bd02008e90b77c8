# Every .cpp file of the project is in exactly one list of cmake/sources.cmake, and every file that
# is listed exists. A test file that nobody builds would look like a test that passes.
#
#   cmake -D ROOT=<project> -P sources_listed.cmake

cmake_minimum_required(VERSION 3.25)

include(${ROOT}/cmake/sources.cmake)

get_cmake_property(names VARIABLES)
list(FILTER names INCLUDE REGEX "^VU_.*(SOURCES|EXAMPLES)(_|$)")
set(listed)
foreach(name IN LISTS names)
  # A list that picks from another one.
  if(NOT name MATCHES "_WITH_")
    list(APPEND listed ${${name}})
  endif()
endforeach()

# The build names this one itself.
list(APPEND listed tests/support/os_faults.cpp)

set(faults)
set(seen)
foreach(file IN LISTS listed)
  if(file IN_LIST seen)
    list(APPEND faults "${file} is listed twice")
  endif()
  list(APPEND seen ${file})
  if(NOT EXISTS ${ROOT}/${file})
    list(APPEND faults "${file} is listed but does not exist")
  endif()
endforeach()

set(found)
foreach(folder IN ITEMS platform file index storage tools examples tests bench fuzz)
  file(GLOB_RECURSE files RELATIVE ${ROOT} ${ROOT}/${folder}/*.cpp)
  list(APPEND found ${files})
endforeach()
if(NOT found)
  list(APPEND faults "there is no .cpp file below ${ROOT}")
endif()
foreach(file IN LISTS found)
  if(NOT file IN_LIST listed)
    list(APPEND faults "${file} is in no list")
  endif()
endforeach()

list(LENGTH found count)
if(faults)
  list(JOIN faults "\n  " faults)
  message(FATAL_ERROR "cmake/sources.cmake:\n  ${faults}")
endif()
message(STATUS "all ${count} source files are listed once")
