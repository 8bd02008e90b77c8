#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <iterator>
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
