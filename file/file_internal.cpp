#include "file/file_internal.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "platform/os/path_root.h"

bool next_line(std::string_view& rest, std::string_view& line) {
  while (!rest.empty()) {
    const std::size_t feed = rest.find('\n');
    if (feed == std::string_view::npos) {
      // Required: a last line without a line feed keeps its carriage return.
      line = rest;
      rest = {};
      return true;
    }
    line = rest.substr(0, feed);
    rest.remove_prefix(feed + 1);
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (!line.empty()) return true;
  }
  return false;
}

namespace vu_file_internal {
namespace {

constexpr std::u16string_view kPrefix = u"\\\\?\\";
/// The limit for the part after the root: the classic limit, less room for a short file name.
constexpr std::size_t kClassicLength = 249;

bool is_drive_letter(char16_t c) { return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z'); }

/// Replaces slashes by backslashes, and runs of them by one, except at the start of a network path.
std::u16string normalised(const std::u16string& path) {
  std::u16string result;
  result.reserve(path.size());
  for (const char16_t c : path) {
    const char16_t unit = c == u'/' ? u'\\' : c;
    // The first three characters always stay: a network path begins with a run of backslashes.
    if (unit == u'\\' && result.size() > 2 && result.back() == u'\\') continue;
    result += unit;
  }
  return result;
}

/// The length of a path's root; 0 if it has none.
std::size_t root_length(std::u16string_view path) {
  if (path.starts_with(u"\\\\")) return 2;
  if (path.starts_with(u'\\')) return 1;
  const bool has_drive =
      path.size() > 2 && is_drive_letter(path[0]) && path[1] == u':' && path[2] == u'\\';
  return has_drive ? 3 : 0;
}

/// Whether a path needs no conversion: it is ASCII, within the classic limit, ends in a name, and
/// does not begin like a network path. Behind the prefix "\\?\" Windows takes separators literally:
/// "\\?\C:/x" would not be found.
bool is_plain(const std::string& path) {
  constexpr const char* kSeparators = "\\/";
  const auto is_ascii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
  return path.size() < kClassicLength && path.find_first_not_of(kSeparators) < 2 &&
         path.find_last_of(kSeparators) != path.size() - 1 &&
         std::all_of(path.begin(), path.end(), is_ascii);
}

/// The wide form of a path without separators at its end. A root keeps its backslash.
ucs2string path_to_ask(const vu_utf8string& path, bool already_long) {
  ucs2string wide(path);
  if (!already_long) wide = getLongPath(wide);
  const std::size_t kept = os::length_without_separators(std::u16string_view(wide.str()));
  return kept < wide.size() ? wide.substr(0, kept) : wide;
}

}  // namespace

ucs2string getLongPath(const ucs2string& path) {
  std::u16string result = normalised(path.str());
  std::u16string_view bare = result;
  if (bare.starts_with(kPrefix)) bare.remove_prefix(kPrefix.size());
  const std::size_t root = root_length(bare);
  if (root == 0 || bare.size() - root < kClassicLength) return result;

  // Required: a network path gets the same prefix as any other path.
  ucs2string prefixed(std::u16string(kPrefix).append(bare));
  ucs2string short_form;
  if (os::short_path(prefixed, short_form).ok()) return short_form;
  return prefixed;
}

vu_utf8string long_form(const vu_utf8string& path) {
  return vu_utf8string(getLongPath(ucs2string(path)));
}

std::u16string absolute_form(const ucs2string& path) {
  std::u16string result = normalised(path.str());
  const std::size_t root = root_length(result);
  // Required: a network path counts as relative, like a path without a root.
  return root == 1 || root == 3 ? result : std::u16string();
}

bool getFileStat(const vu_utf8string& path, os::FileStat& result, bool alreadyLong, os::Links links,
                 os::Handle folder) {
  VU_FILE_SCOPE();
  const auto ask = [&](os::Path asked) { return os::stat(asked.in(folder), result, links); };
  const os::Status status =
      is_plain(path.str()) ? ask(path.str()) : ask(path_to_ask(path, alreadyLong));
  if (status.ok()) return true;
  if (status.code() == ENOENT) {
    VU_WARNING(path, ": doesn't exists");  // sic
  } else {
    VU_ERROR(path, ": can't stat");
  }
  return false;
}

std::string system_error_text(std::int32_t code) {
  const vu_utf8string text(os::error_text_wide(code));
  if (!text.empty()) return text.str();
  return "system error: " + std::to_string(code) + "\n";
}

}  // namespace vu_file_internal
