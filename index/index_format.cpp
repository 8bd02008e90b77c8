#include "index/index_format.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

#include "index/numbers.h"

namespace index_format {
namespace {

constexpr auto kNone = std::string_view::npos;

/// Whether @p wanted is at the position @p at, and a line begins there.
bool begins_line(std::string_view text, std::size_t at, std::string_view wanted) {
  return (at == 0 || text[at - 1] == '\n') && text.substr(at, wanted.size()) == wanted;
}

bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

/// The value of one character of %XY. Any character has a value, hexadecimal digit or not. A byte
/// above 127 is negative on every compiler.
int escape_value(char character) {
  const int code = static_cast<signed char>(character);
  return code < 'A' ? code - '0' : (code & ~0x20) - ('A' - 10);
}

/// The number of positions that are compared in one step, by vector instructions.
constexpr std::size_t kStep = 128;

/// Three bytes of the wanted text, at positions where lines differ most.
struct Marks {
  struct Mark {
    std::size_t at = 0;
    char byte = 0;
  };
  std::array<Mark, 3> marks;

  /// The first of @p places positions from @p first on where the marks fit, or null.
  const char* first_fit(const char* first, std::size_t places) const {
    const char* at = first + marks[0].at;
    const char* const end = at + places;
    for (;; ++at) {
      at = static_cast<const char*>(
          std::memchr(at, marks[0].byte, static_cast<std::size_t>(end - at)));
      if (at == nullptr) return nullptr;
      const char* const place = at - marks[0].at;
      if (place[marks[1].at] == marks[1].byte && place[marks[2].at] == marks[2].byte) return place;
    }
  }
  /// Whether the marks fit at one of the kStep positions from @p first on, all within the text.
  bool fit_somewhere(const char* first) const {
    const char* const one = first + marks[0].at;
    const char* const two = first + marks[1].at;
    const char* const three = first + marks[2].at;
    unsigned char seen = 0;
    for (std::size_t i = 0; i < kStep; ++i) {
      // Compares all three without a branch, so that the compiler can use vector instructions.
      const auto is = [](char found, char wanted) {
        return static_cast<unsigned>(found == wanted);
      };
      seen |= static_cast<unsigned char>(is(one[i], marks[0].byte) & is(two[i], marks[1].byte) &
                                         is(three[i], marks[2].byte));
    }
    return seen != 0;
  }
};

/// The positions of the last two characters of a name before its extension; 0 if there are fewer.
std::array<std::size_t, 2> end_of_stem(std::string_view name) {
  const std::size_t stem = stem_of(name).size();
  return {stem < 1 ? 0 : stem - 1, stem < 2 ? 0 : stem - 2};
}

/// The next position from @p from on where the marks fit and @p size bytes are left, or kNone.
std::size_t next_marked(std::string_view text, const Marks& marks, std::size_t size,
                        std::size_t from) {
  if (text.size() < size) return kNone;
  const std::size_t places = text.size() - size + 1;
  const char* const bytes = text.data();
  while (from < places) {
    const std::size_t step = std::min(kStep, places - from);
    if (step < kStep || marks.fit_somewhere(bytes + from)) {
      const char* const found = marks.first_fit(bytes + from, step);
      if (found != nullptr) return static_cast<std::size_t>(found - bytes);
    }
    from += step;
  }
  return kNone;
}

/// Like text.find(wanted, from) for a key with its "/", but only at the start of a line.
std::size_t find_key(std::string_view text, std::string_view wanted, std::size_t from) {
  const std::size_t slash = wanted.size() - 1;
  Marks marks;
  marks.marks.fill({slash, '/'});
  // A shorter text is not a key, but a line can have it before its "/".
  if (slash >= kStampLength) {
    const std::string_view key = wanted.substr(0, slash);
    const std::array<std::size_t, 2> in_name = end_of_stem(logical_of(key));
    // Nearly all keys with the timestamp 0 are in folders where all keys have it.
    const std::size_t second = key.ends_with("_0000000000") ? in_name[1] : slash - 1;
    marks.marks[1] = {second, wanted[second]};
    marks.marks[2] = {in_name[0], wanted[in_name[0]]};
  }
  for (;;) {
    from = next_marked(text, marks, wanted.size(), from);
    if (from == kNone || begins_line(text, from, wanted)) return from;
    ++from;
  }
}

}  // namespace

std::string generated_name(std::int32_t number) {
  std::string name;
  append_padded(name, static_cast<std::uint32_t>(number), kGeneratedDigits);
  return name;
}

bool is_generated_name(std::string_view name) {
  return name.size() >= kGeneratedDigits && name.find_first_not_of("0123456789") == kNone;
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
  std::string key;
  key.reserve(logical.size() + kStampLength);
  key.append(logical).append("_");
  append_padded(key, static_cast<std::uint32_t>(timestamp), kStampLength - 1);
  return key;
}

std::int32_t timestamp_of(std::string_view key) {
  const std::string_view stamp = key.substr(key.size() - kStampLength + 1);
  // All entries of some folders have this one.
  return stamp == "0000000000" ? 0 : parse_decimal(stamp);
}

bool bears_extension(std::string_view key, std::string_view stored) {
  return stored != logical_of(key) || timestamp_of(key) != 0;
}

namespace {

/// What follows the physical name in the name of an entry's file.
std::string_view extension_of_file(std::string_view key, std::string_view stored) {
  return bears_extension(key, stored) ? extension_of(logical_of(key)) : std::string_view();
}

}  // namespace

bool is_file_name(std::string_view key, std::string_view stored, std::string_view name) {
  const std::string_view extension = extension_of_file(key, stored);
  return name.size() == stored.size() + extension.size() && name.starts_with(stored) &&
         name.ends_with(extension);
}

std::string file_name_of(std::string_view key, std::string_view stored) {
  const std::string_view extension = extension_of_file(key, stored);
  std::string name;
  name.reserve(stored.size() + extension.size());
  name.append(stored).append(extension);
  return name;
}

// ---- walking the text ------------------------------------------------------------------------

LinesOfKey::LinesOfKey(std::string_view text, std::string_view key) : m_text(text), m_wanted(key) {
  // A key contains a line feed only if a line runs on; then every line has to be read.
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
  // The first "/" of a line separates, so no line has a key that contains a "/".
  const std::size_t separator_in_key = m_wanted.size() - 1;
  if (m_wanted.find('/') != separator_in_key) return false;

  const std::size_t start = find_key(m_text, m_wanted, m_from);
  if (start == kNone) {
    m_from = m_text.size();
    return false;
  }
  m_from = start + m_wanted.size();
  const std::size_t end = m_text.find('\n', m_from);
  line.key = m_text.substr(start, separator_in_key);
  line.stored = m_text.substr(m_from, end == kNone ? kNone : end - m_from);
  line.separator = m_from - 1;
  line.runs_on = false;
  return true;
}

bool LinesOfName::next(Line& line) {
  // The first "/" of a line separates, so no line has a name that contains a "/".
  if (m_name.find('/') != kNone) return false;
  const std::size_t key_size = m_name.size() + kStampLength;
  Marks marks;
  marks.marks.fill({key_size, '/'});
  if (!m_name.empty()) {
    const std::array<std::size_t, 2> in_name = end_of_stem(m_name);
    marks.marks[1] = {in_name[0], m_name[in_name[0]]};
    marks.marks[2] = {in_name[1], m_name[in_name[1]]};
  }
  for (;; ++m_from) {
    m_from = next_marked(m_text, marks, key_size + 1, m_from);
    if (m_from == kNone) {
      m_from = m_text.size();
      return false;
    }
    if (!begins_line(m_text, m_from, m_name)) continue;
    const std::string_view key = m_text.substr(m_from, key_size);
    if (key.find('/') != kNone) continue;
    line.key = key;
    line.separator = m_from + key_size;
    line.runs_on = key.find('\n') != kNone;
    line.stored = m_text.substr(line.separator + 1);
    if (!line.runs_on) line.stored = line.stored.substr(0, line.stored.find('\n'));
    m_from = line.separator;
    return true;
  }
}

// ---- escaped names ---------------------------------------------------------------------------

bool is_escaped_form(std::string_view name) {
  const auto is_allowed = [](char c) {
    const auto is_within = [c](char first, char last) { return first <= c && c <= last; };
    return is_within('a', 'z') || is_within('A', 'Z') || is_within('-', '9') || c == '_' ||
           c == '+' || c == '%' || c == '#';
  };
  return std::all_of(name.begin(), name.end(), is_allowed);
}

std::string unescape(std::string_view name) {
  const std::string_view stem = stem_of(name);

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
  decoded += extension_of(name);
  return decoded;
}

}  // namespace index_format
