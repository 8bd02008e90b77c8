# Projects outside of this one, built against the build tree, the install tree and a moved install tree.

# vu_consumer(<kind> <tree: build, installed, moved>)
function(vu_consumer kind tree)
  set(arguments -D KIND=${kind} -D COMPILER=${CMAKE_CXX_COMPILER} -D BUILD=${PROJECT_BINARY_DIR}
    -D SCRATCH=${PROJECT_BINARY_DIR}/consumer-${kind}-${tree} -D LIBDIR=${CMAKE_INSTALL_LIBDIR})
  if(tree STREQUAL "build")
    list(APPEND arguments -D IN_PLACE=ON)
  elseif(tree STREQUAL "moved")
    list(APPEND arguments -D MOVE=ON)
  endif()
  if(CMAKE_CROSSCOMPILING)
    list(APPEND arguments -D TOOLCHAIN=${CMAKE_TOOLCHAIN_FILE}
      -D EMULATOR=${CMAKE_CROSSCOMPILING_EMULATOR})
  endif()
  add_test(NAME consumer_${kind}_${tree}
    COMMAND ${CMAKE_COMMAND} ${arguments} -P ${PROJECT_SOURCE_DIR}/tests/consumer/run.cmake)
  set_tests_properties(consumer_${kind}_${tree} PROPERTIES TIMEOUT 300 LABELS consumer)
endfunction()

# A program outside has no sanitizer of ours, and MSVC has other flags.
if(NOT VU_SANITIZE AND NOT MSVC)
  vu_consumer(cmake build)
  vu_consumer(cmake installed)
  vu_consumer(cmake moved)
  vu_consumer(command-line moved)
  if(NOT CMAKE_CROSSCOMPILING)
    vu_consumer(pkg-config moved)
  endif()
endif()
