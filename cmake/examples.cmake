# Programs as a user of the library writes them: each sees the exported headers and the library only.

foreach(source IN LISTS VU_EXAMPLES)
  cmake_path(GET source STEM name)
  if(name STREQUAL "demo")
    set(target storage_demo)
  else()
    set(target ${name}_storage)
  endif()
  add_executable(${target} ${source})
  vu_program(${target})
  target_link_libraries(${target} PRIVATE vu_storage::vu_storage)
  # Examples may show how a host hands a POCO mutex or logger on.
  if(source IN_LIST VU_EXAMPLES_WITH_POCO)
    target_link_libraries(${target} PRIVATE vu_poco)
  endif()
endforeach()
