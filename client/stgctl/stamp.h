#pragma once

#include <charconv>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>

/// @file
/// Timestamps of versions as they are typed: whole numbers of 31 bits.
namespace stgctl {

/// Takes what is below 0, too: other programs may have stored it.
inline std::optional<std::int32_t> parse_stamp(const std::string& text) {
  std::int32_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

/// As a check of an argument: empty when the text is a timestamp, else what is wrong with it.
inline std::string is_stamp(const std::string& text) {
  return parse_stamp(text).value_or(-1) >= 0
             ? std::string()
             : "'" + text + "' is no timestamp, a whole number from 0 to 2147483647";
}

/// As is_stamp(), or "mtime".
inline std::string is_stamp_or_mtime(const std::string& text) {
  return text == "mtime" ? std::string() : is_stamp(text);
}

/// The timestamp that a text which is_stamp_or_mtime() accepts stands for.
inline std::int32_t stamp_of(const std::string& text, std::int64_t modify_time) {
  if (text != "mtime") return parse_stamp(text).value_or(0);
  constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
  return static_cast<std::int32_t>(modify_time < 0 ? 0 : modify_time > kMost ? kMost : modify_time);
}

}  // namespace stgctl
