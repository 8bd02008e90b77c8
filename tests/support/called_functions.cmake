# Generates the list of the functions of the C interface, and a macro for each that records its success: see called.h.
# Sets vu_called_folder to the folder of the header.

set(header ${PROJECT_SOURCE_DIR}/include/vu/storage.h)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${header})
file(READ ${header} text)
string(REGEX MATCHALL "VU_C_API [a-z0-9_* ]+vu_[a-z_]+\\(" declarations "${text}")
string(REGEX MATCHALL "\nVU_C_API " marks "${text}")
list(LENGTH declarations count)
list(LENGTH marks expected)
if(count LESS 40 OR NOT count EQUAL expected)
  message(FATAL_ERROR "${header} declares ${expected} functions, but only ${count} were parsed. Adapt the pattern of this file.")
endif()

set(names)
set(macros)
foreach(declaration IN LISTS declarations)
  string(REGEX MATCH "(vu_[a-z_]+)\\(" ignored "${declaration}")
  set(name ${CMAKE_MATCH_1})
  string(APPEND names "    \"${name}\",\n")
  if(declaration MATCHES "^VU_C_API vu_status ")
    string(APPEND macros "#define ${name}(...) called::note(\"${name}\", ${name}(__VA_ARGS__))\n")
  else()
    string(APPEND macros "#define ${name}(...) (called::note(\"${name}\"), ${name}(__VA_ARGS__))\n")
  endif()
endforeach()
set(vu_called_folder ${PROJECT_BINARY_DIR}/called)
file(CONFIGURE OUTPUT ${vu_called_folder}/called_functions.h CONTENT
"// Made of vu/storage.h by the build.
#pragma once

namespace called {

inline constexpr const char* kFunctions[] = {
@names@};

}  // namespace called

@macros@" @ONLY)
