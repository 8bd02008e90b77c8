# The shared library vu_storage, the static library vu_storage_testable for tests of internal functions, and the
# installation.

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

# ---- the library for tests -------------------------------------------------------------------------

# Copies of the exported headers for tests of internal functions. In these copies two classes have a test peer as a
# friend (tests/support/storage_peer.h, index_peer.h). The shipped headers name no such friend, because any program could
# define it.

set(vu_test_include ${PROJECT_BINARY_DIR}/test-include)

# vu_test_header(<header> [<class> <peer>])
function(vu_test_header header)
  set(source ${PROJECT_SOURCE_DIR}/include/${header})
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${source})
  file(READ ${source} text)
  if(ARGC GREATER 1)
    set(begin "class VU_STORAGE_API ${ARGV1} ")
    string(FIND "${text}" "${begin}" at)
    string(FIND "${text}" " private:\n" private REVERSE)
    if(at EQUAL -1 OR private LESS at)
      message(FATAL_ERROR "${header} has no class ${ARGV1} with a private part: update cmake/library.cmake")
    endif()
    string(LENGTH " private:\n" length)
    math(EXPR behind "${private} + ${length}")
    string(SUBSTRING "${text}" 0 ${behind} head)
    string(SUBSTRING "${text}" ${behind} -1 tail)
    set(text "${head}  friend struct ${ARGV2};\n${tail}")
  endif()
  file(GENERATE OUTPUT ${vu_test_include}/${header} CONTENT "${text}")
endfunction()

if(VU_BUILD_TESTS)
  add_library(vu_storage_testable STATIC)
  vu_library(vu_storage_testable)
  if(NOT MSVC)
    target_compile_options(vu_storage_testable PRIVATE -O1 ${vu_test_debug})
  endif()
  file(GLOB vu_headers RELATIVE ${PROJECT_SOURCE_DIR}/include CONFIGURE_DEPENDS
    ${PROJECT_SOURCE_DIR}/include/*.h)
  foreach(header IN LISTS vu_headers)
    if(header STREQUAL "vu_storage.h")
      vu_test_header(${header} vu_storage vu_storage_test_peer)
    elseif(header STREQUAL "stg_index.h")
      vu_test_header(${header} STGIndex stg_index_test_peer)
    else()
      vu_test_header(${header})
    endif()
  endforeach()
  # These folders come before include/: headers with test peers as friends, and the OS seam with fault injection.
  target_include_directories(vu_storage_testable BEFORE PUBLIC
    ${PROJECT_SOURCE_DIR}/tests/support/layer ${vu_test_include})
  target_compile_definitions(vu_storage_testable PUBLIC VU_STORAGE_STATIC=1)
  # For internal headers, with the same paths as in the library's sources.
  target_include_directories(vu_storage_testable PUBLIC ${PROJECT_SOURCE_DIR})
endif()

# ---- the rooms -------------------------------------------------------------------------------------

add_subdirectory(platform)
add_subdirectory(file)
add_subdirectory(index)
add_subdirectory(storage)
add_subdirectory(api)

# ---- installation ----------------------------------------------------------------------------------

# Three components: runtime, development, client. Other projects find the library by
# find_package(vu_storage), in the build tree and in an install tree in any place, or by pkg-config.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(vu_package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/vu_storage)

target_include_directories(vu_storage INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
# The library has no search path; the system's loader finds its dependencies.
set_target_properties(vu_storage PROPERTIES INSTALL_RPATH "" SKIP_BUILD_RPATH ON)

install(TARGETS vu_storage EXPORT vu_storage
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
if(VU_RUNTIME_DLLS)
  install(FILES ${VU_RUNTIME_DLLS} DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
endif()
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

# For PYTHONPATH or "pip install", with any version of Python.
install(DIRECTORY bindings/python/vu_storage bindings/python/examples
  DESTINATION ${CMAKE_INSTALL_DATADIR}/vu_storage/python COMPONENT development
  PATTERN __pycache__ EXCLUDE)
install(FILES bindings/python/pyproject.toml
  DESTINATION ${CMAKE_INSTALL_DATADIR}/vu_storage/python COMPONENT development)

# ---- CMake -----------------------------------------------------------------------------------------

install(EXPORT vu_storage
  FILE vu_storage-targets.cmake NAMESPACE vu_storage::
  DESTINATION ${vu_package_folder} COMPONENT development)
export(EXPORT vu_storage
  FILE ${PROJECT_BINARY_DIR}/vu_storage-targets.cmake NAMESPACE vu_storage::)

# The same file works in the build tree and the install tree: it reads the targets file in its own folder.
configure_file(${PROJECT_SOURCE_DIR}/cmake/vu_storage-config.cmake.in
  ${PROJECT_BINARY_DIR}/vu_storage-config.cmake @ONLY)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vu_storage-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/vu_storage-config.cmake
  ${PROJECT_BINARY_DIR}/vu_storage-config-version.cmake
  DESTINATION ${vu_package_folder} COMPONENT development)

# ---- pkg-config ------------------------------------------------------------------------------------

# A relative path from the file to the prefix, so that the tree can be moved.
set(vu_pkgconfig_folder ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
  BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX}/${vu_pkgconfig_folder}
  OUTPUT_VARIABLE vu_pkgconfig_to_prefix)
configure_file(${PROJECT_SOURCE_DIR}/cmake/vu_storage.pc.in
  ${PROJECT_BINARY_DIR}/vu_storage.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vu_storage.pc
  DESTINATION ${vu_pkgconfig_folder} COMPONENT development)

# ---- manual pages ----------------------------------------------------------------------------------

if(UNIX AND VU_BUILD_CLIENT)
  foreach(section IN ITEMS 1 5 7)
    file(GLOB pages ${PROJECT_SOURCE_DIR}/docs/man/*.${section})
    install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT client)
  endforeach()
endif()
