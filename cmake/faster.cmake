# What only saves time. A compiler cache and a quicker linker are taken when they are installed, and never
# needed; what tests have in common is compiled once.

option(VU_CCACHE "Compile through ccache when it is installed" ON)
if(VU_CCACHE AND NOT MSVC AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  find_program(VU_CCACHE_PROGRAM ccache)
  if(VU_CCACHE_PROGRAM)
    # Sources that use a precompiled header are kept too, with these two allowances.
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env
      CCACHE_SLOPPINESS=pch_defines,time_macros ${VU_CCACHE_PROGRAM})
  endif()
endif()

# For test programs; what is shipped is linked as the system does it.
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

# Debugging information is for native test programs: it is most of a Windows one, and the linker writes it
# and Wine reads it at every start. Names of symbols are the rest.
if(CMAKE_CROSSCOMPILING)
  set(vu_test_debug -g0)
  list(APPEND vu_quick_linker -s)
else()
  set(vu_test_debug -g1)
endif()

# The C++ library's headers that most sources include.
set(vu_common_headers <algorithm> <array> <atomic> <chrono> <cstdint> <filesystem> <fstream> <functional>
  <map> <memory> <mutex> <optional> <set> <sstream> <string> <string_view> <thread> <utility> <vector>)

# vu_precompiled(<target> HEADERS <header...> | BY <target>): what the sources include is compiled beforehand,
# once per set of flags; the target that does it may have no definition that another one lacks. A source
# includes what it uses all the same: the package for Debian is built without.
function(vu_precompiled target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "BY" "HEADERS")
  # What ccache needs to keep what was compiled with a precompiled header.
  target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>)
  # GCC takes a precompiled std::string for our code, and finds faults that are none in what it inlines (its
  # bugs 105329 and 105651). The package for Debian, without precompiled headers, is built with these.
  target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:
    -Wno-array-bounds;-Wno-restrict;-Wno-stringop-overflow;-Wno-stringop-overread>)
  if(arg_BY)
    target_precompile_headers(${target} REUSE_FROM ${arg_BY})
  else()
    target_precompile_headers(${target} PRIVATE ${arg_HEADERS})
  endif()
endfunction()

# vu_test_code(<target> <-O0 or -O1> [PRECOMPILE <header...> | PRECOMPILED_BY <target>]): code of tests.
function(vu_test_code target optimise)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "PRECOMPILED_BY" "PRECOMPILE")
  vu_own_code(${target})
  # Libraries of objects and programs then have the same flags, and with them the same precompiled header.
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
