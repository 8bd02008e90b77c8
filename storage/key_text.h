#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "stg_types.h"

/// @file
/// The text form of key files, without any file: lines of a name, "=" and a value. Bytes only;
/// nothing is trimmed, quoted or escaped, so a value cannot hold a line end or a tab.
namespace key_text {

/// Which "=" of a line separates name and value.
enum class Separator : std::uint8_t { kFirst, kLast };

/// The two sides of a line, views into it.
struct Pair {
  std::string_view name;
  std::string_view value;
};

/// Splits a line at its separator; nothing when it has none.
std::optional<Pair> split(std::string_view line, Separator separator);

/// Walks the lines of a text without copying; each kind of boundary is searched for in one pass.
/// Carriage return, line feed and tab all end a line, and a run of them is one boundary.
class Lines {
 public:
  /// Borrows the text.
  explicit Lines(std::string_view text) : m_text(text) {}

  /// Steps to the next line; false after the last one. Before a text's first boundary an empty line
  /// may come.
  bool next(std::string_view& line);

 private:
  std::size_t next_boundary();

  std::string_view m_text;
  std::size_t m_pos = 0;
  /// Where each kind comes next; before m_pos when that has to be looked up.
  std::array<std::size_t, 3> m_next{};
};

/// The text of a sequence: name, "=", value and a line feed for each element.
std::string join(const STG::NameValueSeq& seq);

/// Cuts `text` from the first occurrence of `entry`, wherever in a line that is, through the next
/// line feed. False, and nothing cut, when there is no occurrence; the empty entry occurs at the
/// start.
bool cut_line(std::string& text, const std::string& entry);

}  // namespace key_text
