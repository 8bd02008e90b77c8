# Every .cpp file of the project is listed in the CMakeLists.txt beside it, or in the nearest one above. A
# test file that nobody builds would look like a test that passes. (That a listed file exists, CMake checks.)
#
#   cmake -D ROOT=<project> -P sources_listed.cmake

cmake_minimum_required(VERSION 3.25)

set(faults)
set(found)
foreach(folder IN ITEMS platform file index storage examples client tests lab)
  file(GLOB_RECURSE files RELATIVE ${ROOT} ${ROOT}/${folder}/*.cpp)
  list(APPEND found ${files})
endforeach()
# A project of its own, which is built with compilers and tools of all kinds.
list(FILTER found EXCLUDE REGEX "^tests/consumer/")
if(NOT found)
  list(APPEND faults "there is no .cpp file below ${ROOT}")
endif()

foreach(file IN LISTS found)
  cmake_path(GET file PARENT_PATH room)
  while(room AND NOT EXISTS ${ROOT}/${room}/CMakeLists.txt)
    cmake_path(GET room PARENT_PATH room)
  endwhile()
  if(NOT room)
    list(APPEND faults "${file}: there is no CMakeLists.txt beside it")
    continue()
  endif()
  cmake_path(RELATIVE_PATH file BASE_DIRECTORY ${room} OUTPUT_VARIABLE name)
  file(READ ${ROOT}/${room}/CMakeLists.txt text)
  # Comments list nothing.
  string(REGEX REPLACE "#[^\n]*" "" text "${text}")
  string(REPLACE "." "\\." pattern "${name}")
  if(NOT text MATCHES "[ \n(]${pattern}[ \n)]")
    list(APPEND faults "${file} is not listed in ${room}/CMakeLists.txt")
  endif()
endforeach()

list(LENGTH found count)
if(faults)
  list(JOIN faults "\n  " faults)
  message(FATAL_ERROR "sources:\n  ${faults}")
endif()
message(STATUS "all ${count} source files are listed beside them")
