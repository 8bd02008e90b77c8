#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

/// @file
/// Paths as text, for both spellings of the file layer: nothing here traces, fails or looks at a
/// file.
namespace path_text {

template <class Char>
constexpr bool is_separator(Char c) {
  return c == Char('\\') || c == Char('/');
}

inline bool ends_in_separator(std::string_view path) {
  return !path.empty() && is_separator(path.back());
}
inline bool ends_in_separator(std::u16string_view path) {
  return !path.empty() && is_separator(path.back());
}

/// Whether the path begins with two backslashes and goes on, as network paths do (and those in the
/// long form).
inline bool is_network(std::string_view path) {
  return path.size() > 2 && path.starts_with("\\\\");
}
inline bool is_network(std::u16string_view path) {
  return path.size() > 2 && path.starts_with(u"\\\\");
}

/// Directory and file name as one path.
inline std::string join(std::string_view directory, std::string_view name) {
  std::string path;
  path.reserve(directory.size() + 1 + name.size());
  path.append(directory).append(1, '\\').append(name);
  return path;
}

/// The text before and after a separating character.
struct Cut {
  std::string_view before;
  std::string_view after;
};

/// Cuts at the last backslash. False, with @p cut left alone, when there is none.
inline bool cut_at_last_backslash(std::string_view path, Cut& cut) {
  const std::size_t at = path.rfind('\\');
  if (at == std::string_view::npos) return false;
  cut = {path.substr(0, at), path.substr(at + 1)};
  return true;
}

/// Cuts at the last dot, wherever it stands. False, with @p cut left alone, when there is none.
inline bool cut_at_last_dot(std::string_view path, Cut& cut) {
  const std::size_t at = path.rfind('.');
  if (at == std::string_view::npos) return false;
  cut = {path.substr(0, at), path.substr(at + 1)};
  return true;
}

inline std::string with_separator(std::string path) {
  if (path.empty()) {
    path = ".\\";
  } else if (!is_separator(path.back())) {
    path += '\\';
  }
  return path;
}

inline std::string without_last_separator(std::string path) {
  if (path.empty()) {
    path = ".";
  } else if (is_separator(path.back())) {
    path.pop_back();
  }
  return path;
}

/// A path as directory, separator included (".\" when the path has none), and file name.
struct NameInFolder {
  std::string folder;
  std::string name;
};

inline NameInFolder name_in_folder(const std::string& path) {
  const std::size_t at = path.find_last_of("\\/");
  if (at == std::string::npos) return {".\\", path};
  return {path.substr(0, at + 1), path.substr(at + 1)};
}

}  // namespace path_text
