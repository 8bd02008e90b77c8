# Builds a program against the finished library, with another compiler or other flags, and runs it.
#
#   cmake -D COMPILER=<compiler> -D FLAGS=<flags, by blanks> -D SOURCE=<file> -D INCLUDE=<folder>
#         -D LIBRARY=<file to link> -D FOLDER=<where the loader finds it> -D SCRATCH=<folder>
#         [-D EMULATOR=<command>] [-D FORBIDDEN=<what the program must not need> -D OBJDUMP=<objdump>]
#         -P run.cmake

cmake_minimum_required(VERSION 3.25)

file(REMOVE_RECURSE ${SCRATCH})
file(MAKE_DIRECTORY ${SCRATCH})
separate_arguments(FLAGS UNIX_COMMAND "${FLAGS}")
set(program ${SCRATCH}/border)
if(EMULATOR)
  string(APPEND program .exe)
endif()

# At the end of the command line a linker flag would come before the library.
set(language)
if(SOURCE MATCHES "\\.cpp$")
  set(language -std=c++17)
else()
  set(language -std=c99 -Wpedantic)
endif()
execute_process(COMMAND ${COMPILER} ${language} -Wall -Wextra -Werror -I ${INCLUDE} ${SOURCE} ${LIBRARY}
    ${FLAGS} -o ${program}
  COMMAND_ERROR_IS_FATAL ANY)

if(FORBIDDEN)
  execute_process(COMMAND ${OBJDUMP} -p ${program} OUTPUT_VARIABLE needs COMMAND_ERROR_IS_FATAL ANY)
  if(NOT needs MATCHES "vu_storage")
    message(FATAL_ERROR "${program} does not need the library, according to ${OBJDUMP}. Check how it is linked: ${needs}")
  endif()
  if(needs MATCHES "${FORBIDDEN}")
    message(FATAL_ERROR "${program} needs ${CMAKE_MATCH_0}. Link its runtime statically; the test needs two runtimes.")
  endif()
endif()

if(EMULATOR)
  # Windows looks beside the program.
  file(GLOB dlls ${FOLDER}/*.dll)
  file(COPY ${dlls} DESTINATION ${SCRATCH})
else()
  set(ENV{LD_LIBRARY_PATH} ${FOLDER})
endif()
execute_process(COMMAND ${EMULATOR} ${program} root WORKING_DIRECTORY ${SCRATCH}
  RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE messages)
if(NOT result STREQUAL "0" OR NOT output MATCHES "the border holds")
  message(FATAL_ERROR "${program} ended with exit code ${result}. Its output: ${output}${messages}")
endif()
message(STATUS "${program}: passed")
