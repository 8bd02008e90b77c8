#include "client/stgctl/key_lines.h"

#include <algorithm>

namespace stgctl {

namespace {

constexpr std::string_view kEnds = "\r\n\t";

/// The end of the line that begins at a position, without what ends it.
std::size_t end_of_line(std::string_view text, std::size_t begin) {
  return std::min(text.find_first_of(kEnds, begin), text.size());
}

/// Whether a line is one of the key: the first "=" separates.
bool is_of_key(std::string_view line, std::string_view key) {
  return line.size() > key.size() && line.starts_with(key) && line[key.size()] == '=';
}

/// Removes the key's lines from a position on, each with the run of line ends behind it.
bool remove_lines(std::string& text, std::size_t from, std::string_view key) {
  bool any = false;
  std::size_t begin = from;
  while (begin < text.size()) {
    const std::size_t end = end_of_line(text, begin);
    const std::size_t next = std::min(text.find_first_not_of(kEnds, end), text.size());
    if (is_of_key(std::string_view(text).substr(begin, end - begin), key)) {
      text.erase(begin, next - begin);
      any = true;
    } else {
      begin = next;
    }
  }
  return any;
}

}  // namespace

KeyEdit set_key(std::string& text, std::string_view key, std::string_view value) {
  const std::string line = std::string(key) + "=" + std::string(value);
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = end_of_line(text, begin);
    const std::string_view old = std::string_view(text).substr(begin, end - begin);
    if (is_of_key(old, key)) {
      const bool differs = old != line;
      text.replace(begin, end - begin, line);
      const std::size_t rest =
          std::min(text.find_first_not_of(kEnds, begin + line.size()), text.size());
      return remove_lines(text, rest, key) || differs ? KeyEdit::kChanged : KeyEdit::kUnchanged;
    }
    begin = std::min(text.find_first_not_of(kEnds, end), text.size());
  }
  if (!text.empty() && kEnds.find(text.back()) == std::string_view::npos) text += '\n';
  text += line + "\n";
  return KeyEdit::kChanged;
}

KeyEdit unset_key(std::string& text, std::string_view key) {
  return remove_lines(text, 0, key) ? KeyEdit::kChanged : KeyEdit::kUnchanged;
}

}  // namespace stgctl
