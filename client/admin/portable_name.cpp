#include "client/admin/portable_name.h"

#include <xxhash.h>

#include <algorithm>

#include "client/admin/checksum.h"
#include "client/admin/text.h"

namespace admin {

namespace {

constexpr std::size_t kDigits = 16;     ///< of the checksum that tells names apart
constexpr std::size_t kExtension = 12;  ///< a longer one is cut off with the rest
constexpr std::string_view kRefused = "<>:\"|?*\\/";

std::string escaped(unsigned char byte) {
  const char c = static_cast<char>(byte);
  return '%' + to_hex({&c, 1});
}

/// Every byte that some system refuses, or takes for something else, as "%XX".
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
  // What is refused as a whole by now is a device's name.
  if (!result.empty() && why_not_portable(result) != nullptr)
    result.replace(0, 1, escaped(static_cast<unsigned char>(result[0])));
  return result;
}

/// At most so many bytes, and no half of a character or of "%XX".
std::string_view cut(std::string_view name, std::size_t most) {
  if (name.size() <= most) return name;
  std::size_t end = most;
  while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0U) == 0x80U) --end;
  const std::size_t escape = name.substr(0, end).rfind('%');
  if (escape != std::string_view::npos && end - escape < 3) end = escape;
  return name.substr(0, end);
}

/// The name with a checksum before its extension, in the length that is allowed.
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
  // Reached only by a name that was made to look like one of these.
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
