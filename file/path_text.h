#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "platform/os/os.h"

/// @file
/// Paths as text, for both handles. Nothing here traces or accesses a file.
namespace path_text {

/// The encoding of a path. In a two-byte code page the second byte of a character may have the
/// value of a backslash. In UTF-8 no byte of another character has this value.
enum class Encoding : std::uint8_t { kNarrow, kUtf8 };

/// Whether the byte at @p at is the second one of a two-byte character of the narrow encoding.
inline bool is_second_byte(std::string_view path, std::size_t at) {
  // An odd number of lead bytes directly before @p at means that the last one begins a character.
  std::size_t leads = 0;
  while (leads < at && os::is_lead_byte(static_cast<unsigned char>(path[at - leads - 1]))) ++leads;
  return leads % 2 != 0;
}

template <class Char>
constexpr bool is_separator(Char c) {
  return c == Char('\\') || c == Char('/');
}

inline bool is_separator_at(std::string_view path, std::size_t at, Encoding encoding) {
  if (!is_separator(path[at])) return false;
  // No second byte has the value of a slash.
  return encoding == Encoding::kUtf8 || path[at] == '/' || !is_second_byte(path, at);
}

inline bool ends_in_separator(std::string_view path, Encoding encoding) {
  return !path.empty() && is_separator_at(path, path.size() - 1, encoding);
}
inline bool ends_in_separator(std::u16string_view path) {
  return !path.empty() && is_separator(path.back());
}

/// Whether the path begins with two backslashes and continues: a network path or the long form.
inline bool is_network(std::string_view path) {
  return path.size() > 2 && path.starts_with("\\\\");
}
inline bool is_network(std::u16string_view path) {
  return path.size() > 2 && path.starts_with(u"\\\\");
}

inline std::string join(std::string_view directory, std::string_view name) {
  std::string path;
  path.reserve(directory.size() + 1 + name.size());
  path.append(directory).append(1, '\\').append(name);
  return path;
}

struct Cut {
  std::string_view before;
  std::string_view after;
};

/// The position of the last separator that @p which ("\", "/" or both) contains; npos without one.
inline std::size_t last_separator(std::string_view path, std::string_view which,
                                  Encoding encoding) {
  std::size_t at = path.find_last_of(which);
  while (at != std::string_view::npos && !is_separator_at(path, at, encoding))
    at = at == 0 ? std::string_view::npos : path.find_last_of(which, at - 1);
  return at;
}

/// Cuts at the last backslash. If there is none, returns false and leaves @p cut as it is.
inline bool cut_at_last_backslash(std::string_view path, Encoding encoding, Cut& cut) {
  const std::size_t at = last_separator(path, "\\", encoding);
  if (at == std::string_view::npos) return false;
  cut = {path.substr(0, at), path.substr(at + 1)};
  return true;
}

/// Cuts at the last dot anywhere. If there is none, returns false and leaves @p cut as it is.
inline bool cut_at_last_dot(std::string_view path, Cut& cut) {
  const std::size_t at = path.rfind('.');
  if (at == std::string_view::npos) return false;
  cut = {path.substr(0, at), path.substr(at + 1)};
  return true;
}

inline std::string with_separator(std::string path, Encoding encoding) {
  if (path.empty()) {
    path = ".\\";
  } else if (!ends_in_separator(path, encoding)) {
    path += '\\';
  }
  return path;
}

inline std::string without_last_separator(std::string path, Encoding encoding) {
  if (path.empty()) {
    path = ".";
  } else if (ends_in_separator(path, encoding)) {
    path.pop_back();
  }
  return path;
}

/// A path in two parts: the folder with its separator (".\" if there is none), and the file name.
struct NameInFolder {
  std::string folder;
  std::string name;
};

inline NameInFolder name_in_folder(const std::string& path, Encoding encoding) {
  const std::size_t at = last_separator(path, "\\/", encoding);
  if (at == std::string::npos) return {".\\", path};
  return {path.substr(0, at + 1), path.substr(at + 1)};
}

}  // namespace path_text
