# Like mingw-w64.toolchain.cmake, but Clang compiles. The headers and libraries of the system and of C++ are those of
# MinGW-w64, so that libraries built by GCC can be linked.
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64.toolchain.cmake)

# Creates a folder tree with GCC's layout for Clang. Clang cannot use /usr: it would find the native headers there, and
# it does not accept the name of Debian's folder "12-posix" as a version.
execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libgcc.a
  OUTPUT_VARIABLE vu_libgcc OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_CXX_COMPILER} -dumpfullversion
  OUTPUT_VARIABLE vu_gcc_version OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
cmake_path(GET vu_libgcc PARENT_PATH vu_gcc_folder)
cmake_path(SET vu_root NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/../build/deps/mingw/clang-root)
file(MAKE_DIRECTORY ${vu_root}/lib/gcc/${vu_triplet})
file(CREATE_LINK /usr/${vu_triplet} ${vu_root}/${vu_triplet} SYMBOLIC)
file(CREATE_LINK ${vu_gcc_folder} ${vu_root}/lib/gcc/${vu_triplet}/${vu_gcc_version} SYMBOLIC)

# GCC locates its runtime DLLs and builds the programs outside this project (tests/consumer, tests/border).
set(VU_OUTSIDE_COMPILER ${CMAKE_CXX_COMPILER})
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET ${vu_triplet})
set(CMAKE_CXX_COMPILER_TARGET ${vu_triplet})
set(CMAKE_SYSROOT ${vu_root})
foreach(tool IN ITEMS ar ranlib nm strip objdump objcopy dlltool)
  string(TOUPPER CMAKE_${tool} name)
  set(${name} /usr/bin/${vu_triplet}-${tool})
endforeach()

# GCC's C++ library uses emulated thread-local variables, so the code must use them as well.
set(CMAKE_CXX_FLAGS_INIT -femulated-tls)
# lld, because GNU's linker reports duplicate symbols for the unlikely code that Clang puts in separate sections.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-pthread -fuse-ld=lld")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-pthread -fuse-ld=lld")
