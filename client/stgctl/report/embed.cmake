# Writes a source that holds the files of this folder, for report_file().
#
#   cmake -D OUT=report_files.cpp -P embed.cmake

file(GLOB files RELATIVE ${CMAKE_CURRENT_LIST_DIR}
  ${CMAKE_CURRENT_LIST_DIR}/*.html ${CMAKE_CURRENT_LIST_DIR}/*.svg ${CMAKE_CURRENT_LIST_DIR}/*.css)
set(cases "")
foreach(file IN LISTS files)
  file(READ ${CMAKE_CURRENT_LIST_DIR}/${file} text)
  # A literal for each line: compilers limit the length of one.
  string(REPLACE "\n" "\n)~\"\n         R\"~(" text "${text}")
  string(APPEND cases "  if (name == \"${file}\")\n    return R\"~(${text})~\";\n")
endforeach()
file(WRITE ${OUT} "#include \"client/stgctl/report_files.h\"

#include <stdexcept>
#include <string>

namespace stgctl {

std::string_view report_file(std::string_view name) {
${cases}  throw std::logic_error(\"there is no file \" + std::string(name));
}

}  // namespace stgctl
")
