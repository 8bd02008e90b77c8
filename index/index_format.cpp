#include "index/index_format.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <limits>

namespace index_format {
namespace {

constexpr auto kNone = std::string_view::npos;

bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

/// The value of one character of %XY. Nobody checks that it is a hexadecimal digit: any character has
/// one, and a byte above 127 counts as negative on every compiler.
int escape_value(char character) {
  const int code = static_cast<signed char>(character);
  return code < 'A' ? code - '0' : (code & ~0x20) - ('A' - 10);
}

}  // namespace

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

  const std::boyer_moore_horspool_searcher searcher(m_wanted.begin(), m_wanted.end());
  while (m_from < m_text.size()) {
    const auto found = std::search(m_text.begin() + static_cast<std::ptrdiff_t>(m_from), m_text.end(), searcher);
    if (found == m_text.end()) break;
    const auto start = static_cast<std::size_t>(found - m_text.begin());
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
