#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

/// @file
/// Conversion of the library's paths to POSIX paths, and matching of patterns. It is pure text, so
/// that it can be tested on every system. Nothing here accesses a file.
namespace os::posix {

/// A path for the system: "\" becomes "/", a leading "\\?\" is dropped. Nothing else changes: a
/// drive letter is a plain name, and dots and blanks at the end belong to a name.
///
/// Every operation on a file constructs some. Nearly all fit into the object, without other memory.
class NativePath {
 public:
  explicit NativePath(std::string_view path);
  NativePath(const NativePath&) = delete;
  NativePath& operator=(const NativePath&) = delete;

  std::string_view text() const { return {m_bytes, m_size}; }
  const char* c_str() const { return m_bytes; }
  /// Keeps the first characters only.
  void cut(std::size_t size) {
    m_size = size;
    m_bytes[size] = '\0';
  }

 private:
  std::array<char, 256> m_room;     // not initialised
  std::unique_ptr<char[]> m_large;  // for a path that does not fit
  char* m_bytes = m_room.data();
  std::size_t m_size;
};

/// UTF-16 as UTF-8. A surrogate without a partner becomes the three bytes of its value, which valid
/// UTF-8 never contains. So two different texts never name the same file.
std::string to_bytes(std::u16string_view text);

/// The reverse of to_bytes(). False if the bytes are not a valid encoding; @p text is then
/// undefined.
bool to_wide(std::string_view bytes, std::u16string& text);

// The functions below return parts of their argument, or constants.

/// A path without the separators at its end. The root stays.
struct Trimmed {
  std::string_view path;
  bool had_separator = false;
};
Trimmed trim_separators(std::string_view path);

/// A path without the "/." components at its end. Callers append "/." to search for a folder.
std::string_view trim_self_entries(std::string_view path);

/// A path cut before its last component. The folder is "." for a path of one component, otherwise
/// it ends in "/".
struct Split {
  std::string_view folder;
  std::string_view name;
};
Split split_last(std::string_view path);

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
