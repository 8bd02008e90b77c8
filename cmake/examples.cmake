# Programs as a user of the library writes them: each sees the exported headers and the library only.

# vu_example(<target> <source...>)
function(vu_example target)
  add_executable(${target} ${ARGN})
  vu_program(${target})
  target_link_libraries(${target} PRIVATE vu_storage::vu_storage)
endfunction()

foreach(source IN LISTS VU_EXAMPLES)
  cmake_path(GET source STEM name)
  vu_example(${name}_storage ${source})
  # An example may show how to hand POCO objects of its own on.
  if(source IN_LIST VU_EXAMPLES_WITH_POCO)
    target_link_libraries(${name}_storage PRIVATE vu_poco)
  endif()
endforeach()

if(VU_DEMO_SOURCES)
  set(vu_demo_sources ${VU_DEMO_SOURCES})
  if(WIN32)
    enable_language(RC)
    list(APPEND vu_demo_sources ${VU_DEMO_SOURCES_WINDOWS})
    # The resource compiler does not tell which files it reads.
    set_source_files_properties(${VU_DEMO_SOURCES_WINDOWS} PROPERTIES
      OBJECT_DEPENDS ${PROJECT_SOURCE_DIR}/examples/demo.manifest)
  endif()
  vu_example(storage_demo ${vu_demo_sources})
endif()
