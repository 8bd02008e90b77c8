# Read by POCO's own project() when it is built for Windows (scripts/poco-mingw.sh): Foundation's sources are
# compiled a dozen at a time, which takes a quarter of the time. Those stay alone that are C, or that say
# something to themselves in a word that others use too: a singleton "sh", a "mutex", macros.
function(vu_keep_apart)
  file(GLOB sources ${CMAKE_SOURCE_DIR}/Foundation/src/*.cpp)
  file(GLOB apart ${CMAKE_SOURCE_DIR}/Foundation/src/*.c)
  foreach(source IN LISTS sources)
    file(STRINGS ${source} lines REGEX "[^a-zA-Z_](sh|mutex)[;(]|^#define [A-Za-z]+\\(")
    if(lines)
      list(APPEND apart ${source})
    endif()
  endforeach()
  set_source_files_properties(${apart} TARGET_DIRECTORY Foundation PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
endfunction()
cmake_language(DEFER CALL vu_keep_apart)
