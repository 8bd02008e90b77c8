# Settings of all project code: language, warnings, definitions of the platform, output folders; faster builds; test code.

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "Debug, Release, RelWithDebInfo, MinSizeRel" FORCE)
endif()

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# Programs and DLLs share one folder, because Windows searches for a DLL in the program's folder first.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
# Relative search paths, so that the build tree can be moved. Only stgctl has one after installation.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

# A sanitizer applies to every translation unit, including third-party code that is built here.
set(VU_SANITIZE "" CACHE STRING "Sanitizers for the whole build, such as address,undefined")
if(VU_SANITIZE)
  add_compile_options(-fsanitize=${VU_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${VU_SANITIZE})
endif()

# Coverage counters of Clang for ./dev coverage. Clang counts the branches of the source; it does not count the
# branches that the compiler adds for exceptions.
option(VU_COVERAGE "Count what the tests execute (Clang)" OFF)
if(VU_COVERAGE)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES Clang)
    message(FATAL_ERROR "VU_COVERAGE needs Clang: use the preset linux-coverage")
  endif()
  add_compile_options(-fprofile-instr-generate -fcoverage-mapping)
  add_link_options(-fprofile-instr-generate)
endif()

# vu_own_code(<target>): applies the project's compiler settings. Not for third-party targets.
function(vu_own_code target)
  target_compile_features(${target} PUBLIC cxx_std_17 PRIVATE cxx_std_20)
  if(MSVC)
    # Disabled: 5030 (unknown attributes; they are for GCC and Clang) and 4324 (padding after an alignas member).
    # _CRT_SECURE_NO_WARNINGS: standard C functions are allowed.
    target_compile_options(${target} PRIVATE /W4 /WX /utf-8 /permissive- /Zc:__cplusplus /Zc:preprocessor
      /wd5030 /wd4324)
    target_compile_definitions(${target} PRIVATE _CRT_SECURE_NO_WARNINGS)
  else()
    # Clang's -Wconversion also reports changes of sign, GCC's does not. -Wno-sign-conversion makes both equal.
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wconversion -Wshadow -Werror
      $<$<CXX_COMPILER_ID:Clang>:-Wno-sign-conversion>)
  endif()
  if(WIN32)
    # UNICODE is not defined: the sources call the A or the W function explicitly.
    target_compile_definitions(${target} PRIVATE _WIN32_WINNT=0x0A00 NOMINMAX WIN32_LEAN_AND_MEAN)
  else()
    target_compile_definitions(${target} PRIVATE _FILE_OFFSET_BITS=64 _GNU_SOURCE)
  endif()
endfunction()

# The compiler that builds programs outside this project without further flags and can locate MinGW's runtime DLLs.
# A toolchain file may name a compiler that differs from CMAKE_CXX_COMPILER.
if(NOT VU_OUTSIDE_COMPILER)
  set(VU_OUTSIDE_COMPILER ${CMAKE_CXX_COMPILER})
endif()

# Windows does not contain MinGW's runtime DLLs; this copies them to the folder of the programs. Without debugging
# information they have 2 MB instead of 24 MB, and Wine starts a program in 0.12 s instead of 0.17 s.
function(vu_copy_runtime_dlls)
  if(NOT MINGW)
    return()
  endif()
  set(copies)
  foreach(name IN ITEMS libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
    execute_process(COMMAND ${VU_OUTSIDE_COMPILER} -print-file-name=${name}
      OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    if(NOT IS_ABSOLUTE "${path}" OR NOT EXISTS "${path}")
      message(FATAL_ERROR "${VU_OUTSIDE_COMPILER} cannot locate its runtime library ${name}: install it completely")
    endif()
    set(copy ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${name})
    add_custom_command(OUTPUT ${copy} DEPENDS ${path}
      COMMAND ${CMAKE_STRIP} --strip-unneeded -o ${copy} ${path} VERBATIM)
    list(APPEND copies ${copy})
  endforeach()
  add_custom_target(vu_runtime_dlls ALL DEPENDS ${copies})
  set(VU_RUNTIME_DLLS ${copies} PARENT_SCOPE)
endfunction()

vu_copy_runtime_dlls()

# vu_program(<target>): a program of this project that can run from the build folder.
function(vu_program target)
  vu_own_code(${target})
  if(TARGET vu_runtime_dlls)
    add_dependencies(${target} vu_runtime_dlls)
  endif()
endfunction()

# vu_manifest(<target> <file>): adds a Windows application manifest.
function(vu_manifest target file)
  if(MSVC)
    # The linker merges this manifest with the one that it generates.
    target_sources(${target} PRIVATE ${file})
    return()
  endif()
  enable_language(RC)
  set(script ${CMAKE_CURRENT_BINARY_DIR}/${target}_manifest.rc)
  file(CONFIGURE OUTPUT ${script} CONTENT "1 24 \"${file}\"\n")
  target_sources(${target} PRIVATE ${script})
  # The resource compiler does not report its dependencies.
  set_source_files_properties(${script} PROPERTIES OBJECT_DEPENDS ${file})
endfunction()

# ---- faster builds ---------------------------------------------------------------------------------

# A compiler cache and a faster linker where they are installed, and precompiled headers. None of them is required.

option(VU_CCACHE "Compile through ccache when it is installed" ON)
if(VU_CCACHE AND NOT MSVC AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  find_program(VU_CCACHE_PROGRAM ccache)
  if(VU_CCACHE_PROGRAM)
    # ccache needs these two options to cache sources that use a precompiled header.
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env
      CCACHE_SLOPPINESS=pch_defines,time_macros ${VU_CCACHE_PROGRAM})
  endif()
endif()

# For test programs only; the shipped library and client use the default linker.
set(vu_quick_linker)
if(UNIX AND NOT VU_SANITIZE AND NOT VU_COVERAGE)
  find_program(VU_MOLD mold)
  find_program(VU_LLD ld.lld)
  include(CheckLinkerFlag)
  foreach(linker IN ITEMS mold lld)
    string(TOUPPER ${linker} program)
    if(VU_${program} AND NOT vu_quick_linker)
      check_linker_flag(CXX -fuse-ld=${linker} VU_LINKS_WITH_${program})
      if(VU_LINKS_WITH_${program})
        set(vu_quick_linker -fuse-ld=${linker})
      endif()
    endif()
  endforeach()
endif()

# Only native test programs have debugging information. Cross-built test programs have no symbol names either. The two
# would be most of the file, and Wine would read them at each start.
if(CMAKE_CROSSCOMPILING)
  set(vu_test_debug -g0)
  list(APPEND vu_quick_linker -s)
else()
  set(vu_test_debug -g1)
endif()

# The C++ library's headers that most sources include.
set(vu_common_headers <algorithm> <array> <atomic> <chrono> <cstdint> <filesystem> <fstream> <functional>
  <map> <memory> <mutex> <optional> <set> <sstream> <string> <string_view> <thread> <utility> <vector>)

# vu_precompiled(<target> HEADERS <header...> | BY <target>): HEADERS precompiles headers for the target. BY uses the
# precompiled headers of another target, which must have the same flags and no definition that this target lacks.
# A source still includes what it uses: the Debian package is built without precompiled headers.
function(vu_precompiled target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "BY" "HEADERS")
  # ccache needs this flag to cache sources that use a precompiled header.
  target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>)
  # With a precompiled std::string GCC reports false warnings in inlined code (GCC bugs 105329 and 105651). The Debian
  # package, which has no precompiled headers, is built with these warnings.
  target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:
    -Wno-array-bounds;-Wno-restrict;-Wno-stringop-overflow;-Wno-stringop-overread>)
  if(arg_BY)
    target_precompile_headers(${target} REUSE_FROM ${arg_BY})
  else()
    target_precompile_headers(${target} PRIVATE ${arg_HEADERS})
  endif()
endfunction()

# vu_test_code(<target> <-O0 or -O1> [PRECOMPILE <header...> | PRECOMPILED_BY <target>]): settings of test code.
function(vu_test_code target optimise)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "PRECOMPILED_BY" "PRECOMPILE")
  vu_own_code(${target})
  # OFF: object libraries then have the same flags as programs, so both can share a precompiled header.
  set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE OFF)
  if(NOT MSVC)
    target_compile_options(${target} PRIVATE ${optimise} ${vu_test_debug})
  endif()
  if(arg_PRECOMPILED_BY)
    vu_precompiled(${target} BY ${arg_PRECOMPILED_BY})
  elseif(arg_PRECOMPILE)
    vu_precompiled(${target} HEADERS ${arg_PRECOMPILE})
  endif()
endfunction()
