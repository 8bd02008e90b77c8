# Included by POCO's project() in scripts/poco-mingw.sh, which compiles twelve sources of Foundation as one. That takes
# a quarter of the time. Sources in C stay separate, and sources that define a name which others define as well: a
# singleton "sh", a "mutex", macros.
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
