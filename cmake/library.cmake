# The shared library vu_storage, and the static library vu_storage_testable for tests of internal functions.

# vu_library_sources(<file...>): adds sources of the current folder to both libraries.
function(vu_library_sources)
  list(TRANSFORM ARGN PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/ OUTPUT_VARIABLE files)
  target_sources(vu_storage PRIVATE ${files})
  vu_inside_sources(${ARGN})
endfunction()

# vu_inside_sources(<file...>): adds sources of the current folder to vu_storage_testable only.
function(vu_inside_sources)
  if(TARGET vu_storage_testable)
    list(TRANSFORM ARGN PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/ OUTPUT_VARIABLE files)
    target_sources(vu_storage_testable PRIVATE ${files})
  endif()
endfunction()

function(vu_library target)
  vu_own_code(${target})
  target_include_directories(${target}
    PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    PRIVATE ${PROJECT_SOURCE_DIR})
  vu_precompiled(${target} HEADERS ${vu_common_headers})
  target_link_libraries(${target} PRIVATE vu_poco vu_utf8cpp vu_xxhash)
endfunction()

add_library(vu_storage SHARED)
add_library(vu_storage::vu_storage ALIAS vu_storage)
if(WIN32)
  # The version resource (in Explorer: Properties, "Details").
  enable_language(RC)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/vu_storage.rc.in ${PROJECT_BINARY_DIR}/vu_storage.rc @ONLY)
  target_sources(vu_storage PRIVATE ${PROJECT_BINARY_DIR}/vu_storage.rc)
endif()
vu_library(vu_storage)
target_compile_definitions(vu_storage PRIVATE VU_STORAGE_BUILDING)
set_target_properties(vu_storage PROPERTIES
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR})
if(MINGW)
  # The names are vu_storage.dll and libvu_storage.dll.a.
  set_target_properties(vu_storage PROPERTIES PREFIX "")
elseif(UNIX AND NOT (VU_SANITIZE AND CMAKE_CXX_COMPILER_ID MATCHES Clang))
  # No undefined symbols. Exception: with Clang only the program contains the sanitizer runtime.
  target_link_options(vu_storage PRIVATE -Wl,--no-undefined -Wl,-z,defs)
endif()
if(UNIX)
  set(vu_exports ${PROJECT_SOURCE_DIR}/cmake/exports.map)
  target_link_options(vu_storage PRIVATE -Wl,--version-script=${vu_exports})
  set_target_properties(vu_storage PROPERTIES LINK_DEPENDS ${vu_exports})
endif()
if(TARGET vu_runtime_dlls)
  add_dependencies(vu_storage vu_runtime_dlls)
endif()

if(VU_BUILD_TESTS)
  add_library(vu_storage_testable STATIC)
  vu_library(vu_storage_testable)
  if(NOT MSVC)
    target_compile_options(vu_storage_testable PRIVATE -O1 ${vu_test_debug})
  endif()
  include(test_headers)
  # These folders come before include/: headers with test peers as friends, and the OS seam with fault injection.
  target_include_directories(vu_storage_testable BEFORE PUBLIC
    ${PROJECT_SOURCE_DIR}/tests/support/layer ${vu_test_include})
  target_compile_definitions(vu_storage_testable PUBLIC VU_STORAGE_STATIC=1)
  # For internal headers, with the same paths as in the library's sources.
  target_include_directories(vu_storage_testable PUBLIC ${PROJECT_SOURCE_DIR})
endif()

add_subdirectory(platform)
add_subdirectory(file)
add_subdirectory(index)
add_subdirectory(storage)
add_subdirectory(api)
