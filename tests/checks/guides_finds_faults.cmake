# Tries guides.cmake on a small set of guides, sound at first, then with one fault at a time.

cmake_minimum_required(VERSION 3.25)

set(tree ${SCRATCH}/tree)

function(expect outcome line words)
  file(REMOVE_RECURSE ${tree})
  file(WRITE ${tree}/README.md "# Title\n\nSee [one](docs/one.md).\n")
  file(WRITE ${tree}/docs/one.md "# One\n\n## A `code` heading, odd\n\n```\n[no](link.md)\n```\n${line}\n")
  execute_process(COMMAND ${CMAKE_COMMAND} -D ROOT=${tree} -P ${CMAKE_CURRENT_LIST_DIR}/guides.cmake
    RESULT_VARIABLE code OUTPUT_VARIABLE output ERROR_VARIABLE output)
  string(REGEX REPLACE "[ \n]+" " " output "${output}")
  string(FIND "${output}" "${words}" at)
  if((outcome STREQUAL "passes" AND NOT code STREQUAL "0")
      OR (outcome STREQUAL "fails" AND code STREQUAL "0") OR at EQUAL -1)
    message(FATAL_ERROR "'${line}' should be one that ${outcome} (\"${words}\"):\n${output}")
  endif()
endfunction()

expect(passes "" "1 links of the guides")
expect(passes "[up](../README.md) and [here](#a-code-heading-odd), [out](https://example.org/x)" "3 links")
expect(passes "`[code](none.md)`" "1 links")
expect(fails "[two](two.md)" "docs/one.md: two.md: there is no such file")
expect(fails "[there](../README.md#none)" "../README.md#none: there is no such heading")
expect(fails "[here](#one-two)" "#one-two: there is no such heading")
expect(fails "```" "a fence is not closed")
message(STATUS "all planted faults were found")
