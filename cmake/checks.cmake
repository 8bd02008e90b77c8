# Checks on the sources themselves, run by CTest like every other test.

set(vu_checks ${PROJECT_SOURCE_DIR}/tests/checks)

# Each check is tried on planted faults first: one that lets them pass is worth nothing.
foreach(check IN ITEMS include_arrows columns sources_listed vcpkg_manifest guides versions
    examples_short)
  foreach(mode IN ITEMS "" "_finds_faults")
    add_test(NAME check_${check}${mode} COMMAND ${CMAKE_COMMAND}
      -D "ROOT=${PROJECT_SOURCE_DIR}" -D "VERSION=${PROJECT_VERSION}" -D "SCRATCH=${PROJECT_BINARY_DIR}/check-${check}"
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
    else()
      # Shown as "not run": a compiler that is not there has not been asked.
      string(REPLACE "+" "x" test ${name})
      add_test(NAME check_headers_alone_${test} COMMAND ${name} --version)
      set_tests_properties(check_headers_alone_${test} PROPERTIES DISABLED ON LABELS check)
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

# The library as a file: what it exports, which version it bears, what it needs. Sanitizers add to that,
# and MSVC has other names and tools.
if(VU_SANITIZE OR MSVC)
  return()
endif()
set(vu_file_arguments -D LIBRARY=$<TARGET_FILE:vu_storage> -D VERSION=${PROJECT_VERSION}
  -D OBJDUMP=${CMAKE_OBJDUMP} -D COMPILER=${CMAKE_CXX_COMPILER})
find_program(VU_CXXFILT c++filt REQUIRED)
set(vu_export_arguments -D LIBRARY=$<TARGET_FILE:vu_storage> -D NM=${CMAKE_NM} -D FILTER=${VU_CXXFILT})
if(WIN32)
  list(APPEND vu_file_arguments -D WINDRES=${CMAKE_RC_COMPILER})
  list(APPEND vu_export_arguments -D OBJDUMP=${CMAKE_OBJDUMP})
  set(vu_export_list windows)
else()
  set(vu_export_list linux)
endif()
add_test(NAME check_library_file COMMAND ${CMAKE_COMMAND} ${vu_file_arguments}
  -D SCRATCH=${PROJECT_BINARY_DIR}/check-library-file -P ${vu_checks}/library_file.cmake)
set_tests_properties(check_library_file PROPERTIES TIMEOUT 60 LABELS check)
foreach(mode IN ITEMS "" "_finds_faults")
  add_test(NAME check_exports${mode} COMMAND ${CMAKE_COMMAND} ${vu_export_arguments}
    -D LIST=${vu_checks}/exports/${vu_export_list}.txt
    -D SCRATCH=${PROJECT_BINARY_DIR}/check-exports${mode} -P ${vu_checks}/exports${mode}.cmake)
  set_tests_properties(check_exports${mode} PROPERTIES TIMEOUT 60 LABELS check)
endforeach()
