#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "stg_types.h"

/// The text form of key files, without any file: lines of a name, "=" and a value. Nothing is
/// trimmed, quoted or escaped, so a value cannot contain a line end or a tab.
namespace key_text {

/// Which "=" of a line separates name and value.
enum class Separator : std::uint8_t { kFirst, kLast };

/// The two sides of a line, views into it.
struct Pair {
  std::string_view name;
  std::string_view value;
};

/// Splits a line at its separator; nothing if it has none.
std::optional<Pair> split(std::string_view line, Separator separator);

/// Walks the lines of a text without copying. Carriage return, line feed and tab each end a line; a
/// run of them is one boundary.
class Lines {
 public:
  /// @param text must outlive this object.
  explicit Lines(std::string_view text) : m_text(text) {}

  /// The next line; false after the last one. If the text begins with a boundary, its first line is
  /// empty.
  bool next(std::string_view& line);

 private:
  std::size_t next_boundary();

  std::string_view m_text;
  std::size_t m_pos = 0;
  /// The next position of each of the three; a position before m_pos is outdated.
  std::array<std::size_t, 3> m_next{};
};

/// The text of a sequence: name, "=", value and a line feed for each element.
std::string join(const STG::NameValueSeq& seq);

/// Removes the text from the first occurrence of @p entry, anywhere in a line, up to and including
/// the next line feed. Returns false and removes nothing if @p entry does not occur. The empty
/// entry occurs at the start.
bool cut_line(std::string& text, const std::string& entry);

}  // namespace key_text
