#include "platform/os/posix_path.h"

#include <utf8.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <vector>

namespace os::posix {

namespace {

constexpr char16_t kFirstLead = 0xD800;
constexpr char16_t kFirstTrail = 0xDC00;
constexpr char16_t kPastTrail = 0xE000;

constexpr bool is_lead(char16_t unit) { return unit >= kFirstLead && unit < kFirstTrail; }
constexpr bool is_trail(char16_t unit) { return unit >= kFirstTrail && unit < kPastTrail; }

/// A surrogate in three bytes: 0xED, then 0xA0 or more (with less it is an ordinary character).
bool is_surrogate_form(std::string_view bytes) {
  const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(bytes[at]); };
  return bytes.size() >= 3 && byte(0) == 0xED && byte(1) >= 0xA0 && byte(1) <= 0xBF &&
         byte(2) >= 0x80 && byte(2) <= 0xBF;
}

std::string_view without_trailing(std::string_view text, std::string_view characters) {
  const auto last = text.find_last_not_of(characters);
  return text.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

/// The position after the character at @p at and its continuation bytes.
std::size_t next_character(std::string_view text, std::size_t at) {
  do {
    ++at;
  } while (at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0U) == 0x80U);
  return at;
}

/// After a mismatch it goes back only to the last "*". So the work is limited by the product of the
/// lengths, for any pattern.
bool matches_plainly(std::string_view pattern, std::string_view name) {
  constexpr auto kNone = std::string_view::npos;
  std::size_t p = 0;
  std::size_t n = 0;
  std::size_t after_star = kNone;
  std::size_t star_end = 0;
  while (n < name.size()) {
    if (p < pattern.size() && pattern[p] == '*') {
      after_star = ++p;
      star_end = n;
    } else if (p < pattern.size() && pattern[p] == '?') {
      ++p;
      n = next_character(name, n);
    } else if (p < pattern.size() && pattern[p] == name[n]) {
      ++p;
      ++n;
    } else if (after_star != kNone) {
      p = after_star;
      star_end = next_character(name, star_end);
      n = star_end;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', p) == kNone;
}

/// Copies a path and replaces "\" by "/".
void convert_separators(std::string_view path, char* out) {
  const auto converted = [](char c) { return c == '\\' ? '/' : c; };
  // In pieces of a fixed size, so that the compiler can use vector instructions.
  constexpr std::size_t kPiece = 16;
  const auto convert_piece = [&](std::size_t at) {
    std::array<char, kPiece> piece;
    std::memcpy(piece.data(), path.data() + at, kPiece);
    for (char& c : piece) c = converted(c);
    std::memcpy(out + at, piece.data(), kPiece);
  };
  if (path.size() < kPiece) {
    std::transform(path.begin(), path.end(), out, converted);
    return;
  }
  for (std::size_t at = 0; at + kPiece < path.size(); at += kPiece) convert_piece(at);
  convert_piece(path.size() - kPiece);  // overlaps the piece before
}

}  // namespace

NativePath::NativePath(std::string_view path) {
  constexpr std::string_view kPrefix = R"(\\?\)";
  if (path.starts_with(kPrefix)) path.remove_prefix(kPrefix.size());
  m_size = path.size();
  if (m_size >= m_room.size()) {
    m_large.reset(new char[m_size + 1]);
    m_bytes = m_large.get();
  }
  convert_separators(path, m_bytes);
  m_bytes[m_size] = '\0';
}

std::string to_bytes(std::u16string_view text) {
  std::string bytes;
  bytes.reserve(text.size());
  // ASCII is the same in both forms, and nearly all characters are ASCII.
  const auto others = std::find_if(text.begin(), text.end(), [](char16_t c) { return c >= 0x80; });
  bytes.assign(text.begin(), others);
  for (std::size_t i = bytes.size(); i < text.size(); ++i) {
    std::uint32_t character = text[i];
    if (is_lead(text[i]) && i + 1 < text.size() && is_trail(text[i + 1])) {
      const std::uint32_t high = static_cast<std::uint32_t>(text[i] - kFirstLead) << 10U;
      character = 0x10000U + high + static_cast<std::uint32_t>(text[++i] - kFirstTrail);
    }
    // Unchecked, because the checked form refuses a surrogate.
    utf8::unchecked::append(character, std::back_inserter(bytes));
  }
  return bytes;
}

bool to_wide(std::string_view bytes, std::u16string& text) {
  text.clear();
  while (!bytes.empty()) {
    const auto valid_end = utf8::find_invalid(bytes.begin(), bytes.end());
    utf8::unchecked::utf8to16(bytes.begin(), valid_end, std::back_inserter(text));
    bytes.remove_prefix(static_cast<std::size_t>(valid_end - bytes.begin()));
    if (bytes.empty()) return true;
    if (!is_surrogate_form(bytes)) return false;
    auto position = bytes.begin();
    text.push_back(static_cast<char16_t>(utf8::unchecked::next(position)));
    bytes.remove_prefix(3);
  }
  return true;
}

Trimmed trim_separators(std::string_view path) {
  const std::size_t kept = without_trailing(path, "/").size();
  const bool had_separator = kept < path.size();
  return {path.substr(0, kept == 0 && had_separator ? 1 : kept), had_separator};
}

std::string_view trim_self_entries(std::string_view path) {
  while (path.ends_with("/.")) {
    path.remove_suffix(1);
    path = trim_separators(path).path;
    if (path == "/") break;
  }
  return path;
}

Split split_last(std::string_view path) {
  const auto separator = path.rfind('/');
  if (separator == std::string_view::npos) return {".", path};
  return {path.substr(0, separator + 1), path.substr(separator + 1)};
}

bool is_pattern(std::string_view name) {
  // Every existence test calls this. find_first_of() would call memchr() for each character.
  return name.find('*') != std::string_view::npos || name.find('?') != std::string_view::npos;
}

bool matches(std::string_view pattern, std::string_view name) {
  for (;;) {
    pattern = without_trailing(pattern, ". ");
    if (matches_plainly(pattern, name)) return true;
    if (!pattern.ends_with(".*")) return false;
    pattern.remove_suffix(2);
  }
}

std::string fold(std::string_view absolute) {
  const bool ends_in_separator = absolute.ends_with('/');
  std::vector<std::string_view> components;
  while (!absolute.empty()) {
    const std::size_t length = std::min(absolute.find('/'), absolute.size());
    const std::string_view component = absolute.substr(0, length);
    absolute.remove_prefix(std::min(length + 1, absolute.size()));
    if (component.empty() || component == ".") continue;
    if (component != "..") {
      components.push_back(component);
    } else if (!components.empty()) {
      components.pop_back();
    }
  }
  std::string result;
  for (const std::string_view component : components) result.append("/").append(component);
  if (result.empty() || ends_in_separator) result += '/';
  return result;
}

}  // namespace os::posix
