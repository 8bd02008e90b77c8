# Tries versions.cmake on copies of the files, one of which tells another version.

cmake_minimum_required(VERSION 3.25)

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
    -P ${CMAKE_CURRENT_LIST_DIR}/versions.cmake
    RESULT_VARIABLE code OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(code STREQUAL "0" OR NOT output MATCHES "${file} tells 9\\.9\\.9")
    message(FATAL_ERROR "another version in ${file} is not found:\n${output}")
  endif()
endforeach()
message(STATUS "all planted faults were found")
