# The version stands in several places; all of them tell the one of CMakeLists.txt.
#
#   cmake -D ROOT=<project> -D VERSION=<x.y.z> -P versions.cmake

cmake_minimum_required(VERSION 3.25)

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
