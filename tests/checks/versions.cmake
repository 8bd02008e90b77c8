# The version stands in several places; all of them tell the one of CMakeLists.txt.
#
#   cmake -D ROOT=<project> -D VERSION=<x.y.z> -P versions.cmake

cmake_minimum_required(VERSION 3.25)

# ---- with SELF_TEST: the check itself, tried on injected faults
# Tries versions.cmake on copies of the files, one of which tells another version.
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
    if(code STREQUAL "0" OR NOT output MATCHES "${file} tells 9\\.9\\.9")
      message(FATAL_ERROR "another version in ${file} is not found:\n${output}")
    endif()
  endforeach()
  message(STATUS "all injected faults were found")
  return()
endif()

# ---- the check

# What a file is to hold, as a regular expression with the version as its first group. The first match counts.
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
    list(APPEND faults "${file} tells ${found}")
  endif()
endforeach()
if(faults)
  list(JOIN faults "\n  " faults)
  message(FATAL_ERROR "the project's version is ${VERSION}, but\n  ${faults}")
endif()
list(LENGTH places count)
message(STATUS "${count} files tell version ${VERSION}")
