#include "index/index_format.h"

#include <algorithm>
#include <cstdio>
#include <limits>

namespace index_format {
namespace {

constexpr auto kNone = std::string_view::npos;

bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

/// The value of one character of %XY. Nobody checks that it is a hexadecimal digit: any character
/// has one, and a byte above 127 counts as negative on every compiler.
int escape_value(char character) {
  const int code = static_cast<signed char>(character);
  return code < 'A' ? code - '0' : (code & ~0x20) - ('A' - 10);
}

/// How many places are looked at in one step; the compiler makes vector instructions of it.
constexpr std::size_t kStep = 128;

/// Three bytes of a key with its "/" that differ from line to line as much as any: the "/" itself,
/// the last digit of the timestamp, and the last character of the name before its extension.
struct Marks {
  explicit Marks(std::string_view wanted) : m_wanted(wanted) {
    const std::string_view logical = logical_of(wanted.substr(0, wanted.size() - 1));
    const std::size_t stem = logical.size() - extension_of(logical).size();
    m_in_name = stem == 0 ? 0 : stem - 1;
  }

  /// Whether the text may have the key at one of the kStep places from @p at on, all within the
  /// text.
  bool may_be_at(const char* at) const {
    const std::size_t slash = m_wanted.size() - 1;
    const char* const name = at + m_in_name;
    const char name_byte = m_wanted[m_in_name];
    const char digit_byte = m_wanted[slash - 1];
    unsigned char seen = 0;
    for (std::size_t i = 0; i < kStep; ++i) {
      seen |= static_cast<unsigned char>(
          (at[i + slash] == '/') & (at[i + slash - 1] == digit_byte) & (name[i] == name_byte));
    }
    return seen != 0;
  }

  std::string_view m_wanted;
  std::size_t m_in_name;
};

/// As text.find(wanted, from) for a key with its "/".
std::size_t find(std::string_view text, std::string_view wanted, std::size_t from) {
  // Too short for a key, and so without its marks.
  if (wanted.size() <= kStampLength) return text.find(wanted, from);
  const Marks marks(wanted);
  while (text.size() >= from + kStep + wanted.size()) {
    if (marks.may_be_at(text.data() + from)) {
      const std::size_t found = text.substr(from, kStep + wanted.size() - 1).find(wanted);
      if (found != kNone) return from + found;
    }
    from += kStep;
  }
  return text.find(wanted, from);
}

}  // namespace

std::string generated_name(std::int32_t number) {
  char name[16];
  std::snprintf(name, sizeof name, "%.8d", number);
  return name;
}

bool is_generated_name(std::string_view name) {
  return name.size() >= 8 && name.find_first_not_of("0123456789") == kNone;
}

std::int32_t parse_decimal(std::string_view text) {
  auto it = std::find_if_not(text.begin(), text.end(), is_space);
  bool negative = false;
  if (it != text.end() && (*it == '-' || *it == '+')) negative = *it++ == '-';

  constexpr std::int64_t kLimit = std::numeric_limits<std::int32_t>::max();
  std::int64_t magnitude = 0;
  for (; it != text.end() && *it >= '0' && *it <= '9'; ++it) {
    magnitude = std::min(magnitude * 10 + (*it - '0'), kLimit + 1);
  }
  return static_cast<std::int32_t>(negative ? -magnitude : std::min(magnitude, kLimit));
}

std::string key_of(std::string_view logical, std::int32_t timestamp) {
  char stamp[kStampLength + 1];
  std::snprintf(stamp, sizeof stamp, "_%.10u", static_cast<unsigned>(timestamp));
  std::string key;
  key.reserve(logical.size() + kStampLength);
  key.append(logical).append(stamp);
  return key;
}

std::string_view logical_of(std::string_view key) {
  return key.substr(0, key.size() - kStampLength);
}

std::int32_t timestamp_of(std::string_view key) {
  return parse_decimal(key.substr(key.size() - kStampLength + 1));
}

std::string_view extension_of(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  return dot == kNone ? std::string_view() : name.substr(dot);
}

std::string file_name_of(std::string_view key, std::string_view stored) {
  const std::string_view logical = logical_of(key);
  std::string name(stored);
  if (stored != logical || timestamp_of(key) != 0) name += extension_of(logical);
  return name;
}

// ---- walking the text ------------------------------------------------------------------------

Lines::Lines(std::string_view text) : m_text(text), m_separator(text.find('/')) {}

bool Lines::next(Line& line) {
  if (m_separator == kNone) return false;

  const std::size_t end = m_text.find('\n', m_start);
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
  if (m_separator < m_start) m_separator = m_text.find('/', m_start);
  return true;
}

LinesOfKey::LinesOfKey(std::string_view text, std::string_view key) : m_text(text), m_wanted(key) {
  // A key with a line feed arises only where a line has no "/" of its own.
  if (key.find('\n') != kNone) m_all.emplace(text);
  m_wanted += '/';
}

bool LinesOfKey::next(Line& line) {
  if (!m_all) return next_by_search(line);

  const std::string_view key = std::string_view(m_wanted).substr(0, m_wanted.size() - 1);
  while (m_all->next(line)) {
    if (line.key == key) return true;
  }
  return false;
}

bool LinesOfKey::next_by_search(Line& line) {
  // The first "/" of a line separates: a key that holds one itself is found nowhere.
  const std::size_t separator_in_key = m_wanted.size() - 1;
  if (m_wanted.find('/') != separator_in_key) return false;

  for (;;) {
    const std::size_t start = find(m_text, m_wanted, m_from);
    if (start == kNone) break;
    m_from = start + m_wanted.size();
    if (start != 0 && m_text[start - 1] != '\n') continue;

    const std::size_t end = m_text.find('\n', m_from);
    line.key = m_text.substr(start, separator_in_key);
    line.stored = m_text.substr(m_from, end == kNone ? kNone : end - m_from);
    line.separator = m_from - 1;
    line.runs_on = false;
    return true;
  }
  m_from = m_text.size();
  return false;
}

// ---- escaped names ---------------------------------------------------------------------------

bool is_escaped_form(std::string_view name) {
  return name.find_first_not_of(
             "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ-_+%./#") == kNone;
}

std::string unescape(std::string_view name) {
  const std::string_view extension = extension_of(name);
  const std::string_view stem = name.substr(0, name.size() - extension.size());

  std::string decoded;
  decoded.reserve(name.size());
  for (std::size_t i = 0; i < stem.size(); ++i) {
    if (stem[i] == '%') {
      if (stem.size() - i < 3) break;
      const int high = (escape_value(stem[i + 1]) * 16) & 0xFF;
      decoded += static_cast<char>(high | escape_value(stem[i + 2]));
      i += 2;
    } else {
      decoded += stem[i] == '+' ? ' ' : stem[i];
    }
  }
  decoded += extension;
  return decoded;
}

}  // namespace index_format
