# The command-line client and the library under it. Both see the exported headers of the storage library
# and nothing else of it.

set(vu_admin_sources ${VU_ADMIN_SOURCES} ${VU_ADMIN_WITH_LIBRARY})
set(vu_stgctl_sources ${VU_STGCTL_SOURCES})
if(WIN32)
  enable_language(RC)
  list(APPEND vu_admin_sources
    ${VU_ADMIN_SOURCES_WINDOWS} ${VU_ADMIN_WITH_LIBRARY_WINDOWS})
  list(APPEND vu_stgctl_sources ${VU_STGCTL_SOURCES_WINDOWS})
  # The resource compiler does not tell which files it reads.
  set_source_files_properties(tools/stgctl/stgctl.rc PROPERTIES
    OBJECT_DEPENDS ${PROJECT_SOURCE_DIR}/tools/stgctl/stgctl.manifest)
else()
  list(APPEND vu_admin_sources ${VU_ADMIN_SOURCES_POSIX} ${VU_ADMIN_WITH_LIBRARY_POSIX})
  list(APPEND vu_stgctl_sources ${VU_STGCTL_SOURCES_POSIX})
endif()

# vu_precompiled_client(<target> [<target that has done it>])
function(vu_precompiled_client target)
  # For programs only, all with the same flags.
  set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE OFF)
  target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>)
  if(ARGN)
    target_precompile_headers(${target} REUSE_FROM ${ARGN})
  else()
    target_precompile_headers(${target} PRIVATE ${vu_common_headers})
  endif()
endfunction()

if(vu_admin_sources)
  add_library(vu_admin STATIC ${vu_admin_sources})
  vu_own_code(vu_admin)
  target_include_directories(vu_admin PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(vu_admin PUBLIC vu_storage::vu_storage PRIVATE vu_fmt vu_xxhash)
  vu_precompiled_client(vu_admin)
endif()

add_executable(stgctl ${vu_stgctl_sources})
vu_program(stgctl)
target_include_directories(stgctl PRIVATE ${PROJECT_SOURCE_DIR})
target_compile_definitions(stgctl PRIVATE VU_STGCTL_VERSION="${PROJECT_VERSION}")
target_link_libraries(stgctl PRIVATE vu_storage::vu_storage vu_cli11 vu_json vu_xxhash)
if(TARGET vu_admin)
  target_link_libraries(stgctl PRIVATE vu_admin)
endif()

vu_precompiled_client(stgctl)
if(MINGW)
  # Its main function takes wide arguments.
  target_link_options(stgctl PRIVATE -municode)
endif()

install(TARGETS stgctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT client)
if(UNIX)
  # An installed client finds the library beside it, wherever the two are put.
  set_target_properties(stgctl PROPERTIES
    INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
endif()
