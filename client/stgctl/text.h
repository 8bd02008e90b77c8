#pragma once

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/admin/formatted.h"
#include "client/admin/text.h"

/// @file
/// Text for people: names of any bytes, sizes, times, ages.
namespace stgctl {

using admin::append_formatted;
using admin::formatted;

/// The bytes as printable text: invalid UTF-8 and control characters become U+FFFD.
inline std::string shown(std::string_view bytes) { return admin::printable(bytes); }
/// The texts with the separator between them.
std::string joined(const std::vector<std::string>& texts, std::string_view separator);
/// The texts between the separators: at least one, each can be empty.
std::vector<std::string_view> split(std::string_view text, char separator);
std::vector<std::string_view> split(std::string&& text, char separator) = delete;
/// The number of columns that valid UTF-8 takes, one per code point.
std::size_t columns(std::string_view text);

/// At most so many columns of valid UTF-8.
std::string cut(std::string_view text, std::size_t most);

/// The number that is the whole text. @return nothing for other text.
template <class Number>
std::optional<Number> parse_number(std::string_view text) {
  Number value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}
/// The value of an enumeration whose names have the order of the values. @return nothing for
/// another name.
template <class Enum, class Names>
std::optional<Enum> value_named(const Names& names, std::string_view name) {
  const auto found = std::ranges::find(names, name);
  if (found == std::ranges::end(names)) return std::nullopt;
  return static_cast<Enum>(found - std::ranges::begin(names));
}
/// The bytes of lower-case hexadecimal digits. @return nothing for other text.
std::optional<std::string> from_hex(std::string_view digits);

/// "0 B", "1023 B", "1.5 KiB", "12.0 GiB".
std::string format_bytes(std::uint64_t bytes);
using admin::format_time;
/// "37 s", "12 min", "5 h", "3 d": the largest unit with at least one; "in 5 h" for the future.
std::string format_age(std::int64_t seconds);
/// An age without rounding, in the largest unit that measures it.
struct ExactAge {
  std::string typed;     ///< "37d", "12h", "90s"
  std::string in_words;  ///< "37 days"
};
ExactAge exact_age(std::int64_t seconds);

/// Reads "90s", "15m", "12h", "30d", "4w" or "1y" as seconds. @return nothing for other text, also
/// for a number without a unit and for more than 10,000 years.
std::optional<std::int64_t> parse_age(std::string_view text);
/// As a check of an argument: empty if the text is an age, otherwise an error text.
std::string is_age(const std::string& text);
/// As a check of an argument: empty if the text is a number of things, otherwise an error text.
std::string is_count(const std::string& text);
/// Reads "500", "64K", "10M", "5G" or "1T", also with "B" or "iB" after it, as bytes in powers of
/// 1024.
/// @return nothing for other text.
std::optional<std::uint64_t> parse_size(std::string_view text);
/// As a check of an argument: empty if the text is a size, otherwise an error text.
std::string is_size(const std::string& text);

// ---- timestamps --------------------------------------------------------------------------------
//
// Timestamps of versions as they are typed: whole numbers of 31 bits.

/// Accepts negative numbers too: other programs may have stored them.
inline std::optional<std::int32_t> parse_stamp(std::string_view text) {
  return parse_number<std::int32_t>(text);
}

/// As a check of an argument: empty if the text is a timestamp, otherwise an error text.
inline std::string is_stamp(const std::string& text) {
  return parse_stamp(text).value_or(-1) >= 0
             ? std::string()
             : "'" + text + "' is not a timestamp: a whole number from 0 to 2147483647";
}

/// Like is_stamp(), also accepts "mtime".
inline std::string is_stamp_or_mtime(const std::string& text) {
  return text == "mtime" ? std::string() : is_stamp(text);
}

/// The timestamp of a text that is_stamp_or_mtime() accepts.
inline std::int32_t stamp_of(const std::string& text, std::int64_t modify_time) {
  if (text != "mtime") return parse_stamp(text).value_or(0);
  constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
  return static_cast<std::int32_t>(modify_time < 0 ? 0 : modify_time > kMost ? kMost : modify_time);
}

// ---- bars --------------------------------------------------------------------------------------

/// A bar in eighths of a column, as wide as the share. A share above 0 is always visible.
std::string bar(std::uint64_t part, std::uint64_t whole, std::size_t width);

/// The text, filled with blanks to a width in columns.
std::string padded(std::string text, std::size_t width);

}  // namespace stgctl
