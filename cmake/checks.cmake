# Checks on the sources themselves, run by CTest like every other test.

set(vu_checks ${PROJECT_SOURCE_DIR}/tests/checks)

# Each check is tried on planted faults first: one that lets them pass is worth nothing.
foreach(check IN ITEMS include_arrows sources_listed)
  foreach(mode IN ITEMS "" "_finds_faults")
    add_test(NAME check_${check}${mode} COMMAND ${CMAKE_COMMAND}
      -D "ROOT=${PROJECT_SOURCE_DIR}" -D "SCRATCH=${PROJECT_BINARY_DIR}/check-${check}"
      -P ${vu_checks}/${check}${mode}.cmake)
    set_tests_properties(check_${check}${mode} PROPERTIES TIMEOUT 60 LABELS check)
  endforeach()
endforeach()

# Every exported header alone, as C++17, without a warning, with each compiler there is for this
# platform.
set(vu_header_compilers ${CMAKE_CXX_COMPILER})
if(NOT CMAKE_CROSSCOMPILING AND NOT MSVC)
  foreach(name IN ITEMS g++ clang++)
    find_program(VU_${name} ${name})
    if(VU_${name})
      list(APPEND vu_header_compilers ${VU_${name}})
    endif()
  endforeach()
endif()
set(vu_seen)
foreach(compiler IN LISTS vu_header_compilers)
  # The build's own compiler is usually one of those found, maybe under another name.
  file(REAL_PATH ${compiler} real)
  if(real IN_LIST vu_seen OR MSVC)
    continue()
  endif()
  list(APPEND vu_seen ${real})
  cmake_path(GET compiler FILENAME name)
  string(REPLACE "+" "x" name ${name})
  add_test(NAME check_headers_alone_${name} COMMAND ${CMAKE_COMMAND}
    -D "COMPILER=${compiler}" -D "INCLUDE=${PROJECT_SOURCE_DIR}/include"
    -D "SCRATCH=${PROJECT_BINARY_DIR}/check-headers-${name}"
    -P ${vu_checks}/headers_alone.cmake)
  set_tests_properties(check_headers_alone_${name} PROPERTIES TIMEOUT 300 LABELS check)
endforeach()
