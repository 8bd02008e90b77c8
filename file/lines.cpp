#include "file/lines.h"

#include <cstddef>

bool next_line(std::string_view& rest, std::string_view& line) {
  while (!rest.empty()) {
    const std::size_t feed = rest.find('\n');
    if (feed == std::string_view::npos) {
      // Required: a last line without a line feed keeps its carriage return.
      line = rest;
      rest = {};
      return true;
    }
    line = rest.substr(0, feed);
    rest.remove_prefix(feed + 1);
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (!line.empty()) return true;
  }
  return false;
}
