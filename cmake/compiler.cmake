# What holds for all our own code: the language, the warnings, the platform's definitions, and where
# the results go.

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

# Programs and DLLs share one folder: Windows looks for a DLL beside the program first.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
# The build tree may be moved; an installed program gets no search path at all.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

# Sanitizers take part in every translation unit, third-party code built here included.
set(VU_SANITIZE "" CACHE STRING "Sanitizers for the whole build, such as address,undefined")
if(VU_SANITIZE)
  add_compile_options(-fsanitize=${VU_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${VU_SANITIZE})
endif()

# Counters for ./dev coverage, by Clang: branches as the source has them, without those that only an
# exception takes through compiled code.
option(VU_COVERAGE "Count what the tests execute (Clang)" OFF)
if(VU_COVERAGE)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES Clang)
    message(FATAL_ERROR "VU_COVERAGE needs Clang; use the preset linux-coverage")
  endif()
  add_compile_options(-fprofile-instr-generate -fcoverage-mapping)
  add_link_options(-fprofile-instr-generate)
endif()

# vu_own_code(<target>): our rules for a target; third-party targets do without them.
function(vu_own_code target)
  target_compile_features(${target} PUBLIC cxx_std_17 PRIVATE cxx_std_20)
  if(MSVC)
    # Not 5030 (attributes of GCC and Clang, which others are to leave alone) and 4324 (a member whose alignment
    # is stated may leave a gap). Standard functions are no "unsafe" ones for being old.
    target_compile_options(${target} PRIVATE /W4 /WX /utf-8 /permissive- /Zc:__cplusplus /Zc:preprocessor
      /wd5030 /wd4324)
    target_compile_definitions(${target} PRIVATE _CRT_SECURE_NO_WARNINGS)
  else()
    # To Clang a change of sign is a conversion too; GCC's meaning holds for both.
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wconversion -Wshadow -Werror
      $<$<CXX_COMPILER_ID:Clang>:-Wno-sign-conversion>)
  endif()
  if(WIN32)
    # UNICODE stays undefined: the sources name the A or the W form of every call themselves.
    target_compile_definitions(${target} PRIVATE _WIN32_WINNT=0x0A00 NOMINMAX WIN32_LEAN_AND_MEAN)
  else()
    target_compile_definitions(${target} PRIVATE _FILE_OFFSET_BITS=64 _GNU_SOURCE)
  endif()
endfunction()

# Builds programs outside of this project with a plain command line, and knows MinGW's runtime DLLs. A toolchain
# whose compiler cannot do that without further flags names another.
if(NOT VU_OUTSIDE_COMPILER)
  set(VU_OUTSIDE_COMPILER ${CMAKE_CXX_COMPILER})
endif()

# MinGW's runtime DLLs are no part of Windows: they go beside the programs that need them. Without what is for
# debuggers: of 24 MB 2 remain, and Wine starts a program in 0.12 s that took 0.17.
function(vu_copy_runtime_dlls)
  if(NOT MINGW)
    return()
  endif()
  set(copies)
  foreach(name IN ITEMS libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
    execute_process(COMMAND ${VU_OUTSIDE_COMPILER} -print-file-name=${name}
      OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    if(NOT IS_ABSOLUTE "${path}" OR NOT EXISTS "${path}")
      message(FATAL_ERROR "${VU_OUTSIDE_COMPILER} does not know its own runtime library ${name}")
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

# vu_program(<target>): a program of ours that can be started right from the build folder.
function(vu_program target)
  vu_own_code(${target})
  if(TARGET vu_runtime_dlls)
    add_dependencies(${target} vu_runtime_dlls)
  endif()
endfunction()

# vu_manifest(<target> <file>): what a program tells Windows about itself.
function(vu_manifest target file)
  if(MSVC)
    # Its linker writes a manifest of its own, and joins the two.
    target_sources(${target} PRIVATE ${file})
    return()
  endif()
  enable_language(RC)
  set(script ${CMAKE_CURRENT_BINARY_DIR}/${target}_manifest.rc)
  file(CONFIGURE OUTPUT ${script} CONTENT "1 24 \"${file}\"\n")
  target_sources(${target} PRIVATE ${script})
  # The resource compiler does not tell which files it reads.
  set_source_files_properties(${script} PROPERTIES OBJECT_DEPENDS ${file})
endfunction()
