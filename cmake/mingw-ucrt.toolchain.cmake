# As mingw-w64.toolchain.cmake, with the C runtime that is part of Windows 10 (UCRT) in place of the older msvcrt.
# Debian has these compilers from 13 on.
set(vu_triplet x86_64-w64-mingw32ucrt)
set(vu_compiler_suffix "")
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64.toolchain.cmake)
