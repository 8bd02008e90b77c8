# Builds a project outside of this one against the library and runs it.
#
#   cmake -D KIND=<cmake|pkg-config|command-line|c|c-cmake|python> -D COMPILER=<compiler> -D SCRATCH=<folder>
#         -D BUILD=<build tree> [-D MOVE=ON]    first installs the library from there; MOVE moves that tree,
#      or -D BUILD=<build tree> -D IN_PLACE=ON  uses the build tree itself (kind cmake only),
#      or -D PREFIX=<folder>                    uses an existing install tree
#         [-D TOOLCHAIN=<file>] [-D EMULATOR=<command>] [-D RUNTIME=<folder of the shared library>]
#         [-D LIBDIR=<lib>]
#         -P run.cmake

cmake_minimum_required(VERSION 3.25)

set(here ${CMAKE_CURRENT_LIST_DIR})
set(source ${here}/consumer.cpp)
if(NOT LIBDIR)
  set(LIBDIR lib)
endif()

# step(<name> <command...>): leaves the command's output in `output`; a failure prints it.
function(step what)
  execute_process(COMMAND ${ARGN} WORKING_DIRECTORY ${SCRATCH}
    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result STREQUAL "0")
    message(FATAL_ERROR "${what} failed with exit code ${result}. Its output:\n${output}")
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
    message(FATAL_ERROR "${PREFIX} has no include/vu_storage.h. Correct PREFIX.")
  endif()
endif()
if(RUNTIME)
  set(runtime ${RUNTIME})
endif()

# ---- the program -------------------------------------------------------------------------------------

# The C compiler that belongs to COMPILER: gcc, cc, clang.
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
  # A request for an incompatible version must fail.
  execute_process(COMMAND ${CMAKE_COMMAND} ${arguments} -DWANTED_VERSION=2.0
    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  string(REGEX REPLACE "[ \n]+" " " output "${output}")
  if(result STREQUAL "0" OR NOT output MATCHES "compatible with requested version")
    message(FATAL_ERROR "find_package() accepted version 2.0. Check the version file of the package. Output:\n${output}")
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
  step("configuring" ${CMAKE_COMMAND} -S ${here}/cmake -B ${SCRATCH}/build -G Ninja -DCONSUMER_LANGUAGE=C
    "-DCMAKE_PREFIX_PATH=${search}" -DCMAKE_BUILD_TYPE=Release "-DCMAKE_RUNTIME_OUTPUT_DIRECTORY=${SCRATCH}"
    -DCMAKE_C_COMPILER=${c_compiler})
  step("building" ${CMAKE_COMMAND} --build ${SCRATCH}/build)
elseif(KIND STREQUAL "python")
  set(ENV{PYTHONPATH} "${PREFIX}/share/vu_storage/python")
  set(program python3 -B ${here}/consumer.py)
else()
  message(FATAL_ERROR "the kind '${KIND}' is unknown. Use one of those in the head of this file.")
endif()

# ---- its run -----------------------------------------------------------------------------------------

if(EMULATOR)
  # Drive Z: of Wine is the root of the file system.
  list(TRANSFORM runtime PREPEND "Z:")
  set(ENV{WINEPATH} "${runtime}")
elseif(NOT PREFIX STREQUAL "/usr")
  # Below /usr the loader finds the library without help.
  list(JOIN runtime ":" runtime)
  set(ENV{LD_LIBRARY_PATH} "${runtime}:$ENV{LD_LIBRARY_PATH}")
endif()
step("running" ${EMULATOR} ${program} storage-tree)
if(NOT output MATCHES "consumer: passed|the border holds")
  message(FATAL_ERROR "the program did not print its last line. Its output:\n${output}")
endif()
file(REMOVE_RECURSE ${SCRATCH})
message(STATUS "${KIND}: built against ${search} and run")
