#pragma once

#include <cstddef>
#include <string_view>

/// @file
/// The roots of Windows paths, as pure text. When the separators at the end of a path are dropped,
/// its root keeps its own.
namespace os {

namespace root_text {

template <class Character>
constexpr bool is_separator(Character c) {
  return c == Character('\\') || c == Character('/');
}

/// The position after the component that begins at @p at, and after its separator.
template <class Character>
constexpr std::size_t behind_component(std::basic_string_view<Character> path, std::size_t at) {
  while (at < path.size() && !is_separator(path[at])) ++at;
  return at < path.size() ? at + 1 : at;
}

}  // namespace root_text

/// The length of a path's root with the separator at its end; 0 if it has none. Roots are "\",
/// "C:\", "\\server\share\" and "\\?\C:\". Without a drive, "\\?\" alone is the root.
template <class Character>
constexpr std::size_t root_length(std::basic_string_view<Character> path) {
  using root_text::is_separator;
  const auto is_at = [&](std::size_t at) { return at < path.size() && is_separator(path[at]); };
  std::size_t begin = 0;
  if (path.size() > 3 && is_at(0) && is_at(1) && path[2] == Character('?') && is_at(3)) begin = 4;
  if (begin + 2 < path.size() && path[begin + 1] == Character(':') && is_at(begin + 2))
    return begin + 3;
  if (begin != 0) return begin;
  if (!is_at(0)) return 0;
  if (!is_at(1) || path.size() < 3 || is_at(2)) return 1;
  return root_text::behind_component(path, root_text::behind_component(path, 2));
}

/// The length of a path without the separators at its end; a root keeps its own.
template <class Character>
constexpr std::size_t length_without_separators(std::basic_string_view<Character> path) {
  const std::size_t root = root_length(path);
  std::size_t length = path.size();
  while (length > root && root_text::is_separator(path[length - 1])) --length;
  return length;
}

}  // namespace os
