# Compiles every exported header alone, as C++17 and without warnings: a program that includes one
# header needs no other header before it and no C++20.
#
#   cmake -D COMPILER=<g++ or clang++> -D INCLUDE=<folder> -D SCRATCH=<folder> -P headers_alone.cmake

cmake_minimum_required(VERSION 3.25)

file(MAKE_DIRECTORY ${SCRATCH})
file(GLOB headers RELATIVE ${INCLUDE} ${INCLUDE}/*.h ${INCLUDE}/vu/*.h ${INCLUDE}/vu/*.hpp)
if(NOT headers)
  message(FATAL_ERROR "no header was found in ${INCLUDE}. Correct INCLUDE.")
endif()

set(flags -std=c++17 -fsyntax-only -Wall -Wextra -Wconversion -Wshadow -Werror -I ${INCLUDE})

# Self test: the compiler must report a faulty header, or the flags have no effect.
file(WRITE ${SCRATCH}/faulty.h "inline char cut(long number) { return number; }\n")
file(WRITE ${SCRATCH}/faulty.cpp "#include \"faulty.h\"\n")
execute_process(COMMAND ${COMPILER} ${flags} ${SCRATCH}/faulty.cpp
  RESULT_VARIABLE result OUTPUT_QUIET ERROR_VARIABLE messages)
if(result STREQUAL "0" OR NOT messages MATCHES "conversion")
  message(FATAL_ERROR "${COMPILER} accepts a header that narrows a number. Check the flags of this script. Output: ${messages}")
endif()

set(failed)
foreach(header IN LISTS headers)
  # Twice, to find a missing include guard.
  file(WRITE ${SCRATCH}/alone.cpp "#include \"${header}\"\n#include \"${header}\"\n")
  execute_process(COMMAND ${COMPILER} ${flags} ${SCRATCH}/alone.cpp RESULT_VARIABLE result)
  if(NOT result STREQUAL "0")
    list(APPEND failed ${header})
  endif()
endforeach()

list(LENGTH headers count)
if(failed)
  message(FATAL_ERROR "these headers do not compile alone with ${COMPILER}: ${failed}. Include what they use, see the errors above.")
endif()
message(STATUS "${count} headers compile alone with ${COMPILER}")
