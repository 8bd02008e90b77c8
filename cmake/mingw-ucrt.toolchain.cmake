# Like mingw-w64.toolchain.cmake, but with the C runtime of Windows 10 (UCRT) instead of the older msvcrt.
# Debian provides these compilers since release 13.
set(vu_triplet x86_64-w64-mingw32ucrt)
set(vu_compiler_suffix "")
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64.toolchain.cmake)
