#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// @file
/// The text of "index.dat" and the keys in it, as pure text (docs/formats.md).
namespace index_format {

// ---- names of files ----------------------------------------------------------------------------

/// The index of a folder, and the counter of generated names beside it.
inline constexpr const char* kIndexFile = "index.dat";
inline constexpr const char* kCounterFile = "index";
inline bool is_index_file(std::string_view name) {
  return name == kIndexFile || name == kCounterFile;
}

/// Generated names are decimal numbers in eight or more digits. The first one that a counter gives
/// is that of 1; this one comes where it can count no further.
inline constexpr const char* kFirstName = "00000000";
/// The name that is given while the counter cannot be used, to whoever asks.
inline constexpr const char* kTroubleName = "99999999";
/// The name of a number that is not negative.
std::string generated_name(std::int32_t number);
/// Whether a stored name has the form of a generated one.
bool is_generated_name(std::string_view name);

// ---- keys --------------------------------------------------------------------------------------

/// An underscore and ten digits end every key.
inline constexpr std::size_t kStampLength = 11;

/// Reads a decimal number like a 32-bit atol: leading white space, a sign, digits up to the first
/// other character. It stops at the ends of its range instead of wrapping.
std::int32_t parse_decimal(std::string_view text);

/// logical + "_" + the timestamp's unsigned form in ten digits.
std::string key_of(std::string_view logical, std::int32_t timestamp);

/// The logical name of a key, which must be kStampLength long at least.
std::string_view logical_of(std::string_view key);

/// The timestamp of a key, which must be kStampLength long at least.
std::int32_t timestamp_of(std::string_view key);

/// From the last "." to the end, the dot included; empty without one.
std::string_view extension_of(std::string_view name);

/// The file in the folder that an entry stands for: the stored name itself for a file found there,
/// else the stored name + the logical name's extension.
std::string file_name_of(std::string_view key, std::string_view stored);

/// One line of the text: what stands before its "/" and after it.
struct Line {
  std::string_view key;
  std::string_view stored;
  /// Where the line's "/" stands in the text.
  std::size_t separator = 0;
  /// The line has no "/" of its own: the key runs on over its end to the next one, and the stored
  /// name is the whole rest of the text.
  bool runs_on = false;
};

/// Walks the lines of a text in order, in one pass.
class Lines {
 public:
  explicit Lines(std::string_view text);

  /// The next line, or false at the end. Lines after the last "/" of the text are none.
  bool next(Line& line);

 private:
  std::string_view m_text;
  std::size_t m_start = 0;
  std::size_t m_separator;
};

/// Walks the lines that have one given key, without looking at the others.
class LinesOfKey {
 public:
  LinesOfKey(std::string_view text, std::string_view key);

  /// The next line of the key, or false at the end.
  bool next(Line& line);

 private:
  bool next_by_search(Line& line);

  std::string_view m_text;
  std::string m_wanted;  ///< the key and its "/"
  std::size_t m_from = 0;
  std::optional<Lines>
      m_all;  ///< for a key that may run over a line's end: every line is looked at
};

/// Whether a name consists of digits, ASCII letters and - _ + % . / # only.
bool is_escaped_form(std::string_view name);

/// Decodes %XY and + up to the last "."; incomplete escapes at the end are dropped.
std::string unescape(std::string_view name);

}  // namespace index_format
