# Compiles every exported header alone, as C++17: a program that includes just one must not need
# another first, nor C++20, nor get a warning from it.
#
#   cmake -D COMPILER=<g++ or clang++> -D INCLUDE=<folder> -D SCRATCH=<folder> -P headers_alone.cmake

cmake_minimum_required(VERSION 3.25)

file(MAKE_DIRECTORY ${SCRATCH})
file(GLOB headers RELATIVE ${INCLUDE} ${INCLUDE}/*.h ${INCLUDE}/vu/*.h ${INCLUDE}/vu/*.hpp)
if(NOT headers)
  message(FATAL_ERROR "there is no header in ${INCLUDE}")
endif()

set(flags -std=c++17 -fsyntax-only -Wall -Wextra -Wconversion -Wshadow -Werror -I ${INCLUDE})

# With such a header the check must fail, or the flags do not reach the compiler.
file(WRITE ${SCRATCH}/faulty.h "inline char cut(long number) { return number; }\n")
file(WRITE ${SCRATCH}/faulty.cpp "#include \"faulty.h\"\n")
execute_process(COMMAND ${COMPILER} ${flags} ${SCRATCH}/faulty.cpp
  RESULT_VARIABLE result OUTPUT_QUIET ERROR_VARIABLE messages)
if(result STREQUAL "0" OR NOT messages MATCHES "conversion")
  message(FATAL_ERROR "${COMPILER} takes a header that narrows a number: ${messages}")
endif()

set(failed)
foreach(header IN LISTS headers)
  # Twice, so that a missing include guard shows.
  file(WRITE ${SCRATCH}/alone.cpp "#include \"${header}\"\n#include \"${header}\"\n")
  execute_process(COMMAND ${COMPILER} ${flags} ${SCRATCH}/alone.cpp RESULT_VARIABLE result)
  if(NOT result STREQUAL "0")
    list(APPEND failed ${header})
  endif()
endforeach()

list(LENGTH headers count)
if(failed)
  message(FATAL_ERROR "with ${COMPILER} these headers do not compile alone: ${failed}")
endif()
message(STATUS "${count} headers compile alone with ${COMPILER}")
