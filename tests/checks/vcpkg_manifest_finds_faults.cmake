# Tries vcpkg_manifest.cmake on the project's own manifest with one fault at a time.

cmake_minimum_required(VERSION 3.25)

file(READ ${ROOT}/vcpkg.json sound)

# finds(<what stands there> <what stands there instead> <words of the complaint>)
function(finds old new words)
  string(REPLACE "${old}" "${new}" text "${sound}")
  if(text STREQUAL sound)
    message(FATAL_ERROR "vcpkg.json does not hold '${old}'")
  endif()
  file(WRITE ${SCRATCH}/tree/vcpkg.json "${text}")
  execute_process(COMMAND ${CMAKE_COMMAND} -D ROOT=${SCRATCH}/tree -D VERSION=${VERSION}
    -P ${CMAKE_CURRENT_LIST_DIR}/vcpkg_manifest.cmake
    RESULT_VARIABLE code OUTPUT_VARIABLE output ERROR_VARIABLE output)
  string(REGEX REPLACE "[ \n]+" " " output "${output}")
  string(FIND "${output}" "${words}" at)
  if(code STREQUAL "0" OR at EQUAL -1)
    message(FATAL_ERROR "'${new}' passes (\"${words}\"):\n${output}")
  endif()
endfunction()

finds("\"vu-storage\"" "\"vu_storage\"" "'vu_storage' is no name of a port")
finds("\"version\": \"" "\"version\": \"9" "but the project's is")
finds("\"version\"" "\"version-number\"" "does not know")
finds("\"version\": \"1" "\"version\": \"v1" "there must be one version")
finds("\"client\": {" "\"Client\": {" "there is no feature 'client'")
finds("\"bench\": {" "\"core\": {" "'core' is no name of a feature")
finds("\"default-features\": []" "\"default-features\": [\"all\"]" "'all', which is no feature")
finds("\"default-features\": false" "\"with-features\": false" "'with-features', which vcpkg does not know")
finds("\"gtest\"" "\"googletest-\"" "'googletest-' is no name of a port")
finds("\"gtest\"" "\"fmt\"" "the build needs 'gtest'")
finds("\"description\": \"The benchmarks\"," "" "feature bench has no description")
finds("{" "[" "is no JSON object")
message(STATUS "all planted faults were found")
