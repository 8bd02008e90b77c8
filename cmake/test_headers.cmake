# Writes copies of the exported headers for tests of internal functions. In these copies two classes have a test peer
# as a friend (tests/support/storage_peer.h, index_peer.h). The shipped headers name no such friend, because any program
# could define it.

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
      message(FATAL_ERROR "${header} has no class ${ARGV1} with a private part: update cmake/test_headers.cmake")
    endif()
    string(LENGTH " private:\n" length)
    math(EXPR behind "${private} + ${length}")
    string(SUBSTRING "${text}" 0 ${behind} head)
    string(SUBSTRING "${text}" ${behind} -1 tail)
    set(text "${head}  friend struct ${ARGV2};\n${tail}")
  endif()
  file(GENERATE OUTPUT ${vu_test_include}/${header} CONTENT "${text}")
endfunction()

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
