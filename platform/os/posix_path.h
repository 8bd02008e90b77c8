#pragma once

#include <string>
#include <string_view>

/// @file
/// Paths of the library turned into POSIX paths, and patterns matched against names: pure text, so
/// that it can be tried on every system. Nothing here looks at a file.
namespace os::posix {

/// The path as the system takes it: "\" becomes "/", a leading "\\?\" is dropped. Nothing else
/// changes: a drive letter is a plain name, and trailing dots and blanks belong to theirs.
std::string native_path(std::string_view path);

/// UTF-16 as UTF-8. A surrogate that has no partner becomes the three bytes of its value, which no
/// valid UTF-8 contains: two different texts never name the same file.
std::string to_bytes(std::u16string_view text);

/// The reverse of to_bytes(). False for bytes that are no encoding of anything; @p text is then
/// undefined.
bool to_wide(std::string_view bytes, std::u16string& text);

/// A path without the separators at its end. The root stays.
struct Trimmed {
  std::string path;
  bool had_separator = false;
};
Trimmed trim_separators(std::string path);

/// A path without the "/." components at its end, as a search for a folder's own entry has them.
std::string trim_self_entries(std::string path);

/// A path cut before its last component. The folder can be handed to the system as it is: "." when
/// the path has one component only, ending in "/" otherwise.
struct Split {
  std::string folder;
  std::string name;
};
Split split_last(const std::string& path);

/// Whether a name is a pattern.
bool is_pattern(std::string_view name);

/// Whether a pattern covers a name, letter case observed. "*" stands for any run of characters, "?"
/// for exactly one (in UTF-8). A ".*" at the end also covers the absence of an extension, so "*.*"
/// is everything; dots and blanks at the end of a pattern mean nothing.
bool matches(std::string_view pattern, std::string_view name);

/// An absolute path with "." and ".." folded and runs of separators made one, as text; above the
/// root is the root. A separator at the end stays.
std::string fold(std::string_view absolute);

}  // namespace os::posix
