#pragma once

#include <string>
#include <string_view>

/// @file
/// Conversion of the library's paths to POSIX paths, and matching of patterns. It is pure text, so
/// that it can be tested on every system. Nothing here accesses a file.
namespace os::posix {

/// The path for the system: "\" becomes "/", a leading "\\?\" is dropped. Nothing else changes: a
/// drive letter is a plain name, and dots and blanks at the end belong to a name.
std::string native_path(std::string_view path);

/// UTF-16 as UTF-8. A surrogate without a partner becomes the three bytes of its value, which valid
/// UTF-8 never contains. So two different texts never name the same file.
std::string to_bytes(std::u16string_view text);

/// The reverse of to_bytes(). False if the bytes are not a valid encoding; @p text is then
/// undefined.
bool to_wide(std::string_view bytes, std::u16string& text);

/// A path without the separators at its end. The root stays.
struct Trimmed {
  std::string path;
  bool had_separator = false;
};
Trimmed trim_separators(std::string path);

/// A path without the "/." components at its end. Callers append "/." to search for a folder.
std::string trim_self_entries(std::string path);

/// A path cut before its last component. The folder can be passed to the system as it is: "." for a
/// path of one component, otherwise a path that ends in "/".
struct Split {
  std::string folder;
  std::string name;
};
Split split_last(const std::string& path);

/// The last component only.
inline std::string_view last_of(std::string_view path) { return path.substr(path.rfind('/') + 1); }

/// Whether a name contains "*" or "?".
bool is_pattern(std::string_view name);

/// Whether a pattern matches a name; letter case matters. "*" matches any run of characters, "?"
/// exactly one (in UTF-8). A ".*" at the end also matches a missing extension, so "*.*" matches
/// every name. Dots and blanks at the end of a pattern are ignored.
bool matches(std::string_view pattern, std::string_view name);

/// An absolute path as text, with "." and ".." folded and each run of separators reduced to one.
/// ".." in the root is the root. A separator at the end stays.
std::string fold(std::string_view absolute);

}  // namespace os::posix
