# Faster builds: a compiler cache and a faster linker where they are installed, and precompiled headers. None of
# them is required.

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
