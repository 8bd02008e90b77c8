#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
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
inline std::string_view logical_of(std::string_view key) {
  return key.substr(0, key.size() - kStampLength);
}

/// The timestamp of a key, which must be kStampLength long at least.
std::int32_t timestamp_of(std::string_view key);

/// From the last "." to the end, the dot included; empty without one.
inline std::string_view extension_of(std::string_view name) {
  // From the end on: most are short.
  for (std::size_t dot = name.size(); dot-- != 0;) {
    if (name[dot] == '.') return name.substr(dot);
  }
  return {};
}

/// Whether the file of an entry bears the logical name's extension behind the stored name: all do
/// but files that were found in the folder.
bool bears_extension(std::string_view key, std::string_view stored);

/// The file in the folder that an entry stands for: the stored name, with the logical name's
/// extension where that is so.
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
  /// @param from where a line begins.
  explicit Lines(std::string_view text, std::size_t from = 0)
      : m_text(text), m_start(from), m_separator(text.find('/', from)) {}

  /// The next line, or false at the end. Lines after the last "/" of the text are none.
  bool next(Line& line) {
    constexpr auto kNone = std::string_view::npos;
    if (m_separator == kNone) return false;

    const std::size_t end = place_of('\n');
    line.key = m_text.substr(m_start, m_separator - m_start);
    line.separator = m_separator;
    line.runs_on = end < m_separator;
    line.stored = end == kNone || line.runs_on
                      ? m_text.substr(m_separator + 1)
                      : m_text.substr(m_separator + 1, end - m_separator - 1);

    if (end == kNone) {
      m_separator = kNone;
      return true;
    }
    m_start = end + 1;
    if (m_separator < m_start) m_separator = place_of('/');
    return true;
  }

 private:
  /// The first one from m_start on.
  std::size_t place_of(char wanted) const {
    const std::size_t left = m_text.size() - m_start;
    const void* const found =
        left != 0 ? std::memchr(m_text.data() + m_start, wanted, left) : nullptr;
    return found != nullptr
               ? static_cast<std::size_t>(static_cast<const char*>(found) - m_text.data())
               : std::string_view::npos;
  }

  std::string_view m_text;
  std::size_t m_start;
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

/// Walks the lines that have one given logical name and any timestamp, without looking at the
/// others.
class LinesOfName {
 public:
  LinesOfName(std::string_view text, std::string_view logical) : m_text(text), m_name(logical) {}

  /// The next line of the name, or false at the end.
  bool next(Line& line);

 private:
  std::string_view m_text;
  std::string_view m_name;
  std::size_t m_from = 0;
};

/// Whether a name consists of digits, ASCII letters and - _ + % . / # only.
bool is_escaped_form(std::string_view name);

/// Decodes %XY and + up to the last "."; incomplete escapes at the end are dropped.
std::string unescape(std::string_view name);

}  // namespace index_format
