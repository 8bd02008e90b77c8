# Builds a project outside of this one against the library and runs it.
#
#   cmake -D KIND=<cmake|pkg-config|command-line|c|c-cmake|python> -D COMPILER=<compiler> -D SCRATCH=<folder>
#         -D BUILD=<build tree> [-D MOVE=ON]    installs the library from there first, and moves that tree,
#      or -D BUILD=<build tree> -D IN_PLACE=ON  takes the build tree itself (kind cmake only),
#      or -D PREFIX=<folder>                    takes an install tree that somebody else has made
#         [-D TOOLCHAIN=<file>] [-D EMULATOR=<command>] [-D RUNTIME=<folder of the shared library>]
#         [-D LIBDIR=<lib>]
#         -P run.cmake

cmake_minimum_required(VERSION 3.25)

set(here ${CMAKE_CURRENT_LIST_DIR})
set(source ${here}/consumer.cpp)
if(NOT LIBDIR)
  set(LIBDIR lib)
endif()

# step(<what it is> <command...>): fails with the command's output; leaves that in `output`.
function(step what)
  execute_process(COMMAND ${ARGN} WORKING_DIRECTORY ${SCRATCH}
    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result STREQUAL "0")
    message(FATAL_ERROR "${what} failed (${result}):\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${SCRATCH})
file(MAKE_DIRECTORY ${SCRATCH})

# ---- the tree to build against -----------------------------------------------------------------------

if(IN_PLACE)
  set(search ${BUILD})
  set(runtime ${BUILD}/bin ${BUILD}/lib)
else()
  if(NOT PREFIX)
    set(PREFIX ${SCRATCH}/installed)
    step("installing" ${CMAKE_COMMAND} --install ${BUILD} --prefix ${PREFIX})
    if(MOVE)
      file(MAKE_DIRECTORY "${SCRATCH}/elsewhere")
      file(RENAME ${PREFIX} "${SCRATCH}/elsewhere/moved tree")
      set(PREFIX "${SCRATCH}/elsewhere/moved tree")
    endif()
  endif()
  set(search ${PREFIX})
  set(runtime ${PREFIX}/bin ${PREFIX}/${LIBDIR})
  if(NOT EXISTS ${PREFIX}/include/vu_storage.h)
    message(FATAL_ERROR "there is no include/vu_storage.h in ${PREFIX}")
  endif()
endif()
if(RUNTIME)
  set(runtime ${RUNTIME})
endif()

# ---- the program -------------------------------------------------------------------------------------

# Its sister for C: gcc, cc, clang.
string(REGEX REPLACE "clang[+][+]" "clang" c_compiler "${COMPILER}")
string(REGEX REPLACE "g[+][+]" "gcc" c_compiler "${c_compiler}")
string(REGEX REPLACE "c[+][+]" "cc" c_compiler "${c_compiler}")
set(flags -std=c++17 -Wall -Wextra -Wconversion -Wshadow -Werror)
set(program ${SCRATCH}/consumer)
if(EMULATOR)
  string(APPEND program .exe)
endif()

if(KIND STREQUAL "cmake")
  set(arguments -S ${here}/cmake -B ${SCRATCH}/build -G Ninja "-DCMAKE_PREFIX_PATH=${search}"
    -DCMAKE_BUILD_TYPE=Release "-DCMAKE_RUNTIME_OUTPUT_DIRECTORY=${SCRATCH}")
  if(TOOLCHAIN)
    list(APPEND arguments -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN})
  else()
    list(APPEND arguments -DCMAKE_CXX_COMPILER=${COMPILER})
  endif()
  # A version that this one does not serve must be refused.
  execute_process(COMMAND ${CMAKE_COMMAND} ${arguments} -DWANTED_VERSION=2.0
    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  string(REGEX REPLACE "[ \n]+" " " output "${output}")
  if(result STREQUAL "0" OR NOT output MATCHES "compatible with requested version")
    message(FATAL_ERROR "version 2.0 was asked for and not refused:\n${output}")
  endif()
  step("configuring" ${CMAKE_COMMAND} ${arguments} -DWANTED_VERSION=1.0)
  step("building" ${CMAKE_COMMAND} --build ${SCRATCH}/build)
elseif(KIND STREQUAL "pkg-config")
  find_program(pkg_config NAMES pkg-config pkgconf REQUIRED)
  if(NOT PREFIX STREQUAL "/usr")
    set(ENV{PKG_CONFIG_PATH} "${PREFIX}/${LIBDIR}/pkgconfig")
  endif()
  step("asking pkg-config for version 1" ${pkg_config} --print-errors --atleast-version=1.0 vu_storage)
  step("asking pkg-config" ${pkg_config} --cflags --libs vu_storage)
  separate_arguments(found UNIX_COMMAND "${output}")
  step("compiling" ${COMPILER} ${flags} ${source} -o ${program} ${found})
elseif(KIND STREQUAL "command-line")
  step("compiling" ${COMPILER} ${flags} ${source} -o ${program}
    -I ${PREFIX}/include -L ${PREFIX}/${LIBDIR} -lvu_storage)
elseif(KIND STREQUAL "c")
  step("compiling" ${c_compiler} -std=c99 -Wall -Wextra -Wpedantic -Werror ${here}/../border/border.c -o ${program}
    -I ${PREFIX}/include -L ${PREFIX}/${LIBDIR} -lvu_storage)
elseif(KIND STREQUAL "c-cmake")
  # A project that knows no C++.
  step("configuring" ${CMAKE_COMMAND} -S ${here}/cmake_c -B ${SCRATCH}/build -G Ninja
    "-DCMAKE_PREFIX_PATH=${search}" -DCMAKE_BUILD_TYPE=Release "-DCMAKE_RUNTIME_OUTPUT_DIRECTORY=${SCRATCH}"
    -DCMAKE_C_COMPILER=${c_compiler})
  step("building" ${CMAKE_COMMAND} --build ${SCRATCH}/build)
elseif(KIND STREQUAL "python")
  set(ENV{PYTHONPATH} "${PREFIX}/share/vu_storage/python")
  set(program python3 -B ${here}/consumer.py)
else()
  message(FATAL_ERROR "there is no consumer of the kind '${KIND}'")
endif()

# ---- its run -----------------------------------------------------------------------------------------

if(EMULATOR)
  # Wine's drive Z: is the whole file system.
  list(TRANSFORM runtime PREPEND "Z:")
  set(ENV{WINEPATH} "${runtime}")
elseif(NOT PREFIX STREQUAL "/usr")
  # Below /usr the system's loader finds it by itself.
  list(JOIN runtime ":" runtime)
  set(ENV{LD_LIBRARY_PATH} "${runtime}:$ENV{LD_LIBRARY_PATH}")
endif()
step("running" ${EMULATOR} ${program} storage-tree)
if(NOT output MATCHES "consumer: passed|the border holds")
  message(FATAL_ERROR "the program ended without its last line:\n${output}")
endif()
file(REMOVE_RECURSE ${SCRATCH})
message(STATUS "${KIND}: built against ${search} and run")
