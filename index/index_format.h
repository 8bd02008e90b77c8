#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

/// @file
/// The text of "index.dat" and its keys, as pure text (docs/formats.md).
namespace index_format {

// ---- names of files ----------------------------------------------------------------------------

/// The index of a folder, and the counter of generated names beside it.
inline constexpr const char* kIndexFile = "index.dat";
inline constexpr const char* kCounterFile = "index";
inline bool is_index_file(std::string_view name) {
  return name == kIndexFile || name == kCounterFile;
}

/// Generated names are decimal numbers of at least eight digits. The first one is 00000001. After
/// the largest number the counter returns kFirstName.
inline constexpr const char* kFirstName = "00000000";
/// The name that all callers of STGIndex get while the counter cannot be used.
inline constexpr const char* kTroubleName = "99999999";
inline constexpr std::size_t kGeneratedDigits = 8;  ///< at least
/// The name for a number, which must not be negative.
std::string generated_name(std::int32_t number);
/// Whether a physical name has the form of a generated one.
bool is_generated_name(std::string_view name);

// ---- keys --------------------------------------------------------------------------------------

/// Every key ends in an underscore and ten digits.
inline constexpr std::size_t kStampLength = 11;

/// Reads a decimal number like a 32-bit atol: leading white space, a sign, digits up to the first
/// other character. A number outside the range becomes the nearest end of the range.
std::int32_t parse_decimal(std::string_view text);

/// logical + "_" + the timestamp's unsigned form in ten digits.
std::string key_of(std::string_view logical, std::int32_t timestamp);

/// The logical name of a key, which must have at least kStampLength characters.
inline std::string_view logical_of(std::string_view key) {
  return key.substr(0, key.size() - kStampLength);
}

/// The timestamp of a key, which must have at least kStampLength characters.
std::int32_t timestamp_of(std::string_view key);

/// From the last "." to the end, with the dot; empty if there is no dot.
inline std::string_view extension_of(std::string_view name) {
  // Backwards: most extensions are short.
  for (std::size_t dot = name.size(); dot-- != 0;) {
    if (name[dot] == '.') return name.substr(dot);
  }
  return {};
}

/// The name without its extension.
inline std::string_view stem_of(std::string_view name) {
  return name.substr(0, name.size() - extension_of(name).size());
}

/// The extensions of documents, without their dot.
inline constexpr std::array<std::string_view, 7> kDocumentExtensions = {"kdg", "kdb", "kda", "kdd",
                                                                        "kdc", "kdf", "kde"};

inline bool is_document_extension(std::string_view extension) {
  return std::find(kDocumentExtensions.begin(), kDocumentExtensions.end(), extension) !=
         kDocumentExtensions.end();
}

/// Whether the name of an entry's file is the physical name with the logical name's extension. This
/// is true for all entries except adopted files.
bool bears_extension(std::string_view key, std::string_view stored);

/// The name of an entry's file: the physical name, with the logical name's extension unless the
/// file was adopted.
std::string file_name_of(std::string_view key, std::string_view stored);
/// Whether a name is that name.
bool is_file_name(std::string_view key, std::string_view stored, std::string_view name);

/// One line of the text: the parts before and after its "/".
struct Line {
  std::string_view key;
  std::string_view stored;  ///< the physical name
  /// The position of the "/" in the text.
  std::size_t separator = 0;
  /// The line has no "/" of its own. Its key runs on to the next "/", and its physical name is the
  /// whole rest of the text. Example of such a text:
  ///
  ///     a\nb_0000000001/1\nc_0000000001/2
  ///
  /// The line "a" has the key "a\nb_0000000001" and the physical name "1\nc_0000000001/2".
  bool runs_on = false;
};

/// Walks the lines of a text in order, in one pass.
class Lines {
 public:
  /// @param from the start of a line.
  explicit Lines(std::string_view text, std::size_t from = 0)
      : m_text(text), m_start(from), m_separator(text.find('/', from)) {}

  /// The next line, or false at the end. Lines after the last "/" of the text are skipped.
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
  /// The first position of the character from m_start on.
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

/// Walks the lines with a given key. Skips the others without splitting them.
class LinesOfKey {
 public:
  LinesOfKey(std::string_view text, std::string_view key);

  bool next(Line& line);

 private:
  bool next_by_search(Line& line);

  std::string_view m_text;
  std::string m_wanted;  ///< the key and its "/"
  std::size_t m_from = 0;
  std::optional<Lines>
      m_all;  ///< for a key with a line feed, which only a line that runs on can have
};

/// Walks the lines with a given logical name and any timestamp. Skips the others, too.
class LinesOfName {
 public:
  LinesOfName(std::string_view text, std::string_view logical) : m_text(text), m_name(logical) {}

  bool next(Line& line);

 private:
  std::string_view m_text;
  std::string_view m_name;
  std::size_t m_from = 0;
};

/// Whether a name consists of digits, ASCII letters and - _ + % . / # only.
bool is_escaped_form(std::string_view name);

/// Decodes %XY and + before the last "."; drops an incomplete escape at the end.
std::string unescape(std::string_view name);

}  // namespace index_format
