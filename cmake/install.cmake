# Installation in four components: runtime, development, client, documentation. Other projects find the library by
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
