# Several files contain the version; it must be that of CMakeLists.txt.
#
#   cmake -D ROOT=<project> -D VERSION=<x.y.z> -P versions.cmake

cmake_minimum_required(VERSION 3.25)

# SELF_TEST: copies of the files, one with another version, must fail.
if(SELF_TEST)
  foreach(file IN ITEMS vcpkg.json CHANGELOG.md packaging/debian/changelog docs/man/stgctl.1
      bindings/python/pyproject.toml
      docs/man/stgctl-index.5 docs/man/stgctl-tree.7)
    file(REMOVE_RECURSE ${SCRATCH}/tree)
    foreach(copied IN ITEMS vcpkg.json CHANGELOG.md packaging docs/man
        bindings/python/pyproject.toml)
      cmake_path(GET copied PARENT_PATH folder)
      file(COPY ${ROOT}/${copied} DESTINATION ${SCRATCH}/tree/${folder})
    endforeach()
    file(READ ${SCRATCH}/tree/${file} text)
    string(REPLACE "${VERSION}" "9.9.9" text "${text}")
    file(WRITE ${SCRATCH}/tree/${file} "${text}")
    execute_process(COMMAND ${CMAKE_COMMAND} -D ROOT=${SCRATCH}/tree -D VERSION=${VERSION}
      -P ${CMAKE_CURRENT_LIST_FILE}
      RESULT_VARIABLE code OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(code STREQUAL "0" OR NOT output MATCHES "${file} has 9\\.9\\.9")
      message(FATAL_ERROR "another version in ${file} is not reported. Correct this check:\n${output}")
    endif()
  endforeach()
  message(STATUS "every injected fault was reported")
  return()
endif()

# file = regular expression with the version as its first group. The first match is used.
set(places
  "vcpkg.json = \"version\": \"([^\"]*)\""
  "CHANGELOG.md = \n## ([^\n]*)"
  "bindings/python/pyproject.toml = version = \"([^\"]*)\""
  "packaging/debian/changelog = ^vu-storage \\(([^)]*)\\)"
  "docs/man/stgctl.1 = stgctl ([0-9.]+)"
  "docs/man/stgctl-index.5 = stgctl ([0-9.]+)"
  "docs/man/stgctl-tree.7 = stgctl ([0-9.]+)")

set(faults)
foreach(place IN LISTS places)
  string(REGEX MATCH "^([^ ]+) = (.*)$" matched "${place}")
  set(file ${CMAKE_MATCH_1})
  set(pattern "${CMAKE_MATCH_2}")
  set(found "no version")
  if(EXISTS ${ROOT}/${file})
    file(READ ${ROOT}/${file} text)
    if(text MATCHES "${pattern}")
      set(found "${CMAKE_MATCH_1}")
    endif()
  endif()
  if(NOT found STREQUAL VERSION)
    list(APPEND faults "${file} has ${found}")
  endif()
endforeach()
if(faults)
  list(JOIN faults "\n  " faults)
  message(FATAL_ERROR "CMakeLists.txt has version ${VERSION}. Change these files to it:\n  ${faults}")
endif()
list(LENGTH places count)
message(STATUS "${count} files have version ${VERSION}")
