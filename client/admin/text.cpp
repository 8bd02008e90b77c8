#include "client/admin/text.h"

#include <utf8.h>
#include <xxhash.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <iterator>
#include <span>

#include "client/admin/formatted.h"
#include "client/admin/system.h"
#include "index/index_format.h"

namespace admin {

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
/// The characters that Windows does not allow in names.
constexpr std::string_view kRefused = "<>:\"|?*\\/";

struct Decoded {
  char32_t code = 0;
  std::size_t length = 0;  ///< 0: invalid bytes
};

Decoded decode(std::string_view text) {
  if (const auto lead = static_cast<unsigned char>(text[0]); lead < 0x80) return {lead, 1};
  constexpr std::size_t kLongest = 4;
  const std::string_view start = text.substr(0, kLongest);
  const char* at = start.data();
  if (utf8::find_invalid(at, at + start.size()) == at) return {};
  const char32_t code = utf8::unchecked::next(at);
  return {code, static_cast<std::size_t>(at - start.data())};
}

char lower_ascii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

char32_t lower(char32_t c) {
  if (c >= 'A' && c <= 'Z') return c + 32;
  if (c >= 0xC0 && c <= 0xDE && c != 0xD7) return c + 32;
  if (c >= 0x100 && c <= 0x137 && c != 0x130 && c != 0x131) return c | 1U;
  if (c >= 0x139 && c <= 0x148) return c % 2 == 1 ? c + 1 : c;
  if (c >= 0x14A && c <= 0x177) return c | 1U;
  if (c >= 0x391 && c <= 0x3A9 && c != 0x3A2) return c + 32;
  if (c >= 0x410 && c <= 0x42F) return c + 32;
  if (c >= 0x400 && c <= 0x40F) return c + 80;
  return c;
}

template <class Keep>
std::string replaced(std::string_view bytes, Keep keep) {
  std::string text;
  text.reserve(bytes.size());
  while (!bytes.empty()) {
    const Decoded character = decode(bytes);
    const std::size_t length = std::max<std::size_t>(character.length, 1);
    if (character.length != 0 && keep(character.code)) {
      text.append(bytes.substr(0, length));
    } else {
      text.append(kReplacement);
    }
    bytes.remove_prefix(length);
  }
  return text;
}

/// Whether it is the name of a device on Windows, such as CON, con.txt or COM1. The text after the
/// first dot does not matter.
bool is_device(std::string_view name) {
  std::string stem(name.substr(0, name.find('.')));
  for (char& c : stem) c = lower_ascii(c);
  constexpr std::array<std::string_view, 4> kDevices = {"con", "prn", "aux", "nul"};
  if (std::ranges::find(kDevices, stem) != kDevices.end()) return true;
  return stem.size() == 4 && (stem.starts_with("com") || stem.starts_with("lpt")) &&
         stem[3] >= '1' && stem[3] <= '9';
}

/// Classes of bytes. For nearly all names, one pass over the bytes is enough.
enum ByteClass : unsigned char {
  kUnsafeByte = 1,       ///< changes the meaning of a path that contains the name
  kNotPortableByte = 2,  ///< the name may not be portable; a closer check decides
  kHasCase = 4,          ///< may have another letter case
};

constexpr std::array<unsigned char, 256> kClasses = [] {
  std::array<unsigned char, 256> classes{};
  for (unsigned c = 0; c < 256; ++c) {
    unsigned found = 0;
    if (c == '/' || c == '\\' || c == '*' || c == '?' || c == '\n' || c == 0) found |= kUnsafeByte;
    const bool is_refused = kRefused.find(static_cast<char>(c)) != std::string_view::npos;
    if (c < 0x20 || c >= 0x80 || is_refused) found |= kNotPortableByte;
    if ((c >= 'A' && c <= 'Z') || c >= 0x80) found |= kHasCase;
    classes[c] = static_cast<unsigned char>(found);
  }
  return classes;
}();

unsigned classes_in(std::string_view name) {
  unsigned all = 0;
  for (const char c : name) all |= kClasses[static_cast<unsigned char>(c)];
  return all;
}

}  // namespace

bool is_utf8(std::string_view bytes) { return utf8::is_valid(bytes.begin(), bytes.end()); }

std::string to_utf8(std::string_view bytes) {
  return replaced(bytes, [](char32_t) { return true; });
}

std::string printable(std::string_view bytes) {
  return replaced(bytes, [](char32_t c) { return c >= 0x20 && (c < 0x7F || c > 0x9F); });
}

std::string to_hex(std::string_view bytes) {
  std::string text;
  for (const char c : bytes) append_formatted(text, "{:02x}", static_cast<unsigned char>(c));
  return text;
}

void fold_case(std::string_view name, std::string& folded) {
  folded.clear();
  const bool is_ascii = std::all_of(name.begin(), name.end(),
                                    [](char c) { return static_cast<unsigned char>(c) < 0x80; });
  if (is_ascii) {
    folded.assign(name);
    for (char& c : folded) c = lower_ascii(c);
    return;
  }
  while (!name.empty()) {
    const Decoded character = decode(name);
    const std::size_t length = std::max<std::size_t>(character.length, 1);
    if (character.length != 0) {
      utf8::unchecked::append(lower(character.code), std::back_inserter(folded));
    } else {
      folded += name[0];
    }
    name.remove_prefix(length);
  }
}

bool are_same_to_system(std::string_view one, std::string_view other) {
  // Letters have the same number of bytes in both cases.
  if (!sys::kIgnoresCase || one.size() != other.size()) return one == other;
  std::string folded;
  std::string other_folded;
  fold_case(one, folded);
  fold_case(other, other_folded);
  return folded == other_folded;
}

std::string adopted_name(std::string file) {
  const std::size_t dot = std::min(file.rfind('.'), file.size());
  for (char& c : std::span(file).subspan(dot)) c = lower_ascii(c);
  return file;
}

bool has_case(std::string_view name) { return (classes_in(name) & kHasCase) != 0; }

const char* why_not_portable(std::string_view name) {
  if (name.ends_with('.') || name.ends_with(' '))
    return "it ends in a dot or a blank, which Windows removes";
  if ((classes_in(name) & kNotPortableByte) != 0) {
    if (name.find_first_of(kRefused) != std::string_view::npos)
      return "it contains a character that Windows does not allow in names";
    const auto is_control = [](char c) { return static_cast<unsigned char>(c) < 0x20; };
    if (std::any_of(name.begin(), name.end(), is_control)) return "it contains a control character";
    if (!is_utf8(name)) return "it is not UTF-8, so its letters depend on the code page";
  }
  const bool may_be_device =
      !name.empty() && std::string_view("CPANLcpanl").find(name[0]) != std::string_view::npos;
  return may_be_device && is_device(name) ? "it is the name of a device on Windows" : nullptr;
}

const char* why_not_safe(std::string_view name) {
  if (name.empty()) return "it is empty";
  if ((classes_in(name) & kUnsafeByte) != 0) {
    if (name.find_first_of("/\\") != std::string_view::npos) return "it contains a separator";
    if (name.find_first_of("*?") != std::string_view::npos) return "it contains a wildcard";
    if (name.find('\n') != std::string_view::npos) return "it contains a line feed";
    return "it contains a zero byte";
  }
  if (name == "." || name == "..") return "it names the folder itself or the one above";
  if (index_format::is_index_file(name)) return "it is a name that the index itself uses";
  return nullptr;
}

bool matches(std::string_view pattern, std::string_view name,
             std::vector<std::string_view>* stars) {
  const std::size_t before = stars != nullptr ? stars->size() : 0;
  // The last "*", and the part of the name that it takes. The ones before it keep their parts.
  std::size_t star = std::string_view::npos;
  std::size_t begin = 0;
  std::size_t end = 0;
  std::size_t at = 0;
  std::size_t in_name = 0;
  const auto step = [&](std::size_t from) {
    return from + std::max<std::size_t>(decode(name.substr(from)).length, 1);
  };
  while (at < pattern.size() || in_name < name.size()) {
    const char wanted = at < pattern.size() ? pattern[at] : '\0';
    if (at < pattern.size() && wanted == '*') {
      star = at++;
      begin = end = in_name;
      if (stars != nullptr) stars->push_back(name.substr(begin, 0));
    } else if (at < pattern.size() && in_name < name.size() &&
               (wanted == '?' || wanted == name[in_name])) {
      ++at;
      in_name = wanted == '?' ? step(in_name) : in_name + 1;
    } else if (in_name < name.size() && star != std::string_view::npos) {
      // It takes one character more.
      at = star + 1;
      in_name = end = step(end);
      if (stars != nullptr) stars->back() = name.substr(begin, end - begin);
    } else {
      if (stars != nullptr) stars->resize(before);
      return false;
    }
  }
  return true;
}

std::string format_time(std::int64_t seconds) {
  using namespace std::chrono;
  const sys_seconds point{std::chrono::seconds(seconds)};
  const sys_days day = floor<days>(point);
  const year_month_day date(day);
  const hh_mm_ss time(point - day);
  return formatted("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", int{date.year()}, unsigned{date.month()},
                   unsigned{date.day()}, time.hours().count(), time.minutes().count(),
                   time.seconds().count());
}

// ---- checksums ---------------------------------------------------------------------------------

struct Checksum::State {
  XXH3_state_t value;
};

Checksum::Checksum() : m_state(new State, [](State* state) { delete state; }) {
  XXH3_128bits_reset(&m_state->value);
}

void Checksum::add(std::string_view bytes) {
  XXH3_128bits_update(&m_state->value, bytes.data(), bytes.size());
}

std::string Checksum::text() const {
  const XXH128_hash_t hash = XXH3_128bits_digest(&m_state->value);
  return formatted("{:016x}{:016x}", hash.high64, hash.low64);
}

std::string checksum_of(std::string_view bytes) {
  Checksum checksum;
  checksum.add(bytes);
  return checksum.text();
}

// ---- portable names ----------------------------------------------------------------------------

namespace {

constexpr std::size_t kDigits = 16;     ///< of the checksum that distinguishes names
constexpr std::size_t kExtension = 12;  ///< a longer extension is truncated too
std::string escaped(unsigned char byte) { return formatted("%{:02x}", byte); }

/// Writes each byte that a system refuses or changes as "%XX".
std::string without_refused_bytes(std::string_view name) {
  const bool is_text = is_utf8(name);
  std::string result;
  for (std::size_t i = 0; i < name.size(); ++i) {
    const char c = name[i];
    const auto byte = static_cast<unsigned char>(c);
    const bool is_dropped_end = i + 1 == name.size() && (c == '.' || c == ' ');
    const bool is_refused =
        byte < 0x20 || byte == 0x7F || kRefused.find(c) != std::string_view::npos;
    if (is_refused || is_dropped_end || (byte >= 0x80 && !is_text)) {
      result += escaped(byte);
    } else {
      result += c;
    }
  }
  // Only the name of a device is still not portable here.
  if (!result.empty() && why_not_portable(result) != nullptr)
    result.replace(0, 1, escaped(static_cast<unsigned char>(result[0])));
  return result;
}

/// Truncates to at most so many bytes, never inside a character or "%XX".
std::string_view cut(std::string_view name, std::size_t most) {
  if (name.size() <= most) return name;
  std::size_t end = most;
  while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0U) == 0x80U) --end;
  const std::size_t escape = name.substr(0, end).rfind('%');
  if (escape != std::string_view::npos && end - escape < 3) end = escape;
  return name.substr(0, end);
}

/// The name with a checksum before its extension, truncated to the maximum length.
std::string with_checksum(std::string_view portable, std::string_view name) {
  std::size_t dot = portable.rfind('.');
  if (dot == std::string_view::npos || dot == 0 || portable.size() - dot > kExtension)
    dot = portable.size();
  const std::string_view extension = portable.substr(dot);
  const std::string_view stem =
      cut(portable.substr(0, dot), kPortableNameLimit - 1 - kDigits - extension.size());
  std::string result(stem);
  result += '~';
  result += checksum_of(name).substr(0, kDigits);
  result += extension;
  return result;
}

}  // namespace

std::string portable_name(std::string_view name) {
  if (name.empty()) return "%";
  std::string result = without_refused_bytes(name);
  return result.size() > kPortableNameLimit ? with_checksum(result, name) : result;
}

std::string PortableNames::take(std::string_view name) {
  std::string result = portable_name(name);
  if (enter(result)) return result;
  result = with_checksum(result, name);
  // The loop runs only if another name imitates this form.
  for (std::string more = "~"; !enter(result); more += '~')
    result = with_checksum(portable_name(name), std::string(name) + more);
  return result;
}

bool PortableNames::enter(std::string_view name) {
  std::string folded;
  fold_case(name, folded);
  return m_taken.insert(XXH3_64bits(folded.data(), folded.size())).second;
}

}  // namespace admin
