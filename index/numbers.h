#pragma once

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <string>

/// Appends a number in decimal, with zeros before it up to @p digits digits. A number with more
/// digits is appended whole. std::snprintf() would take ten times as many instructions.
inline void append_padded(std::string& text, std::uint32_t number, std::size_t digits) {
  char all[10];
  const char* const end = std::to_chars(std::begin(all), std::end(all), number).ptr;
  const auto count = static_cast<std::size_t>(end - all);
  if (count < digits) text.append(digits - count, '0');
  text.append(all, count);
}

// In exported signatures `long` means 32 bits. Where it is wider, a value outside this range is
// clamped, not cut: a huge limit must not become a small one.

inline std::int32_t clamp32(long value) {
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(
      value, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()));
}

inline std::uint32_t clamp_unsigned32(unsigned long value) {
  return static_cast<std::uint32_t>(
      std::min<std::uint64_t>(value, std::numeric_limits<std::uint32_t>::max()));
}
