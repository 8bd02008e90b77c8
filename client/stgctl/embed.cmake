# Writes a source that holds the files of the folders report and completion, for embedded_file().
#
#   cmake -D OUT=embedded.cpp -P embed.cmake

file(GLOB files ${CMAKE_CURRENT_LIST_DIR}/report/* ${CMAKE_CURRENT_LIST_DIR}/completion/*)
set(cases "")
foreach(file IN LISTS files)
  file(READ ${file} text)
  get_filename_component(name ${file} NAME)
  # A literal for each line: compilers limit the length of one.
  string(REPLACE "\n" "\n)~\"\n         R\"~(" text "${text}")
  string(APPEND cases "  if (name == \"${name}\")\n    return R\"~(${text})~\";\n")
endforeach()
file(WRITE ${OUT} "#include \"client/stgctl/template_text.h\"

#include <stdexcept>
#include <string>

namespace stgctl {

std::string_view embedded_file(std::string_view name) {
${cases}  throw std::logic_error(\"there is no file \" + std::string(name));
}

}  // namespace stgctl
")
