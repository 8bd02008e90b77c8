# 64-bit Windows programs, built on Linux by the MinGW-w64 compilers that use POSIX threads
# (std::mutex and std::thread need that variant; the plain names may point at the other one).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

# mingw-ucrt.toolchain.cmake names others.
if(NOT DEFINED vu_triplet)
  set(vu_triplet x86_64-w64-mingw32)
  set(vu_compiler_suffix -posix)
endif()
set(CMAKE_C_COMPILER ${vu_triplet}-gcc${vu_compiler_suffix})
set(CMAKE_CXX_COMPILER ${vu_triplet}-g++${vu_compiler_suffix})
set(CMAKE_RC_COMPILER ${vu_triplet}-windres)
# POCO compiles its event messages with the message compiler.
set(CMAKE_MC_COMPILER ${vu_triplet}-windmc)

set(CMAKE_FIND_ROOT_PATH /usr/${vu_triplet})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
# Packages are found in the prefixes that the presets name, never among the native ones.
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
set(CMAKE_FIND_USE_CMAKE_SYSTEM_PATH OFF)
