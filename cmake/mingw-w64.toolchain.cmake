# Builds 64-bit Windows programs on Linux with MinGW-w64's compilers for POSIX threads. std::mutex and std::thread need
# that variant. A compiler name without "-posix" may be the other variant.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

# mingw-ucrt.toolchain.cmake sets other names.
if(NOT DEFINED vu_triplet)
  set(vu_triplet x86_64-w64-mingw32)
  set(vu_compiler_suffix -posix)
endif()
set(CMAKE_C_COMPILER ${vu_triplet}-gcc${vu_compiler_suffix})
set(CMAKE_CXX_COMPILER ${vu_triplet}-g++${vu_compiler_suffix})
set(CMAKE_RC_COMPILER ${vu_triplet}-windres)
# POCO needs the message compiler for its event log.
set(CMAKE_MC_COMPILER ${vu_triplet}-windmc)

set(CMAKE_FIND_ROOT_PATH /usr/${vu_triplet})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
# The presets name the prefixes in which packages are searched; native packages are never used.
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
set(CMAKE_FIND_USE_CMAKE_SYSTEM_PATH OFF)
