// Names and paths of any bytes.

#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "file/file_internal.h"
#include "file/path_text.h"
#include "index/index_format.h"
#include "lab/fuzz/target.h"
#include "lab/model/text.h"
#include "platform/os/posix_path.h"
#include "storage/layout.h"
#include "tests/support/index_peer.h"
#include "vu_file.h"
#include "vu_fileutf8.h"
#include "vu_i18n.h"
#include "vu_path.h"
#include "vu_storage.h"

namespace fuzz {
namespace {

void escapes(const std::string& name) {
  require(STGIndex::iSsambaOrT101(name) == model::is_escaped(name), "whether a name is escaped");
  std::string decoded = name;
  STGIndex::UnescapeVU(decoded);
  require_equal(model::unescaped(name), decoded, "the decoded name");
}

void keys(const std::string& name, std::int32_t stamp) {
  const std::string key = stg_index_test_peer::entryAndTS(name, stamp);
  require_equal(model::key(name, stamp), key, "a key");
  require_equal(name, stg_index_test_peer::entryOnly(key), "the name in a key");
  require(stg_index_test_peer::tsOnly(key) == model::stamp_of(key), "the timestamp in a key");
  require(stamp < 0 || stg_index_test_peer::tsOnly(key) == stamp, "the timestamp that was given");
  require_equal(model::extension_with_dot(name), stg_index_test_peer::extension(name),
                "the extension of a name");

  // Any text as a key.
  try {
    require(stg_index_test_peer::tsOnly(name) == model::number(name.substr(name.size() - 10)),
            "the number at a text's end");
    require(name.size() >= 10, "a text too short for a number");
  } catch (const std::out_of_range&) {
    require(name.size() < 10, "a text long enough for a number");
  }
  try {
    require_equal(name.substr(0, name.size() - 11), stg_index_test_peer::entryOnly(name),
                  "the text before the last eleven characters");
  } catch (const std::out_of_range&) {
    require(name.size() < 11, "a text long enough for a key");
  }
  require(index_format::parse_decimal(name) == model::number(name), "the number in a text");
}

void hashes(const std::string& name, std::int32_t modulus) {
  require(layout::hash_of(name, modulus) == model::hash(name, modulus), "the hash");
  require_equal(model::bucket(name), layout::bucket_name(layout::hash_of(name, layout::kBuckets)),
                "the bucket");
}

void encodings(const std::string& bytes) {
  const vu_utf8string text(bytes);
  try {
    require_equal(bytes, vu_utf8string(ucs2string(text)).str(), "text through wide text");
  } catch (const vu_i18n_except&) {
    require(!text.is_valid(), "valid text is refused");
  }

  std::u16string units;
  if (os::posix::to_wide(bytes, units))
    require_equal(bytes, os::posix::to_bytes(units), "bytes through wide text");
  std::u16string any(bytes.size() / 2, u'\0');
  std::memcpy(any.data(), bytes.data(), any.size() * 2);
  std::u16string again;
  require(os::posix::to_wide(os::posix::to_bytes(any), again), "any wide text has bytes");
  require(again == any, "any wide text stays the same");
}

void names(std::string_view bytes) {
  Source source(bytes);
  std::uint32_t number = 0;
  for (int i = 0; i < 4; ++i) number = number << 8U | source.byte();
  const std::string name = source.rest();
  escapes(name);
  keys(name, static_cast<std::int32_t>(number));
  hashes(name, static_cast<std::int32_t>(number));
  encodings(name);
}

REGISTER_FUZZ_TARGET(names, "names")

// ------------------------------------------------------------------------------------------------
// Paths as text: split, joined, in the long form, and in the form for the system.

/// The text before and after the last backslash. Without one it is cut at the first character.
model::Pair cut(const std::string& path) {
  std::size_t at = 0;
  for (std::size_t i = 0; i < path.size(); ++i) {
    if (path[i] == '\\') at = i;
  }
  if (path.empty()) return {"", ""};
  return {path.substr(0, at), path.substr(at + 1)};
}

void cutting(const std::string& path) {
  const model::Pair expected = cut(path);
  const vu_pathutf8 utf8{vu_utf8string(path)};
  require_equal(expected.first, utf8.getParentPathName().str(), "the parent");
  require_equal(expected.second, utf8.getRelativePathName().str(), "the relative name");
  require_equal(expected.first + "\\" + expected.second, utf8.getAbsolutePathName().str(),
                "the absolute name");
#if !defined(_WIN32)
  // Only a code page of Windows has characters of two bytes.
  const vu_path narrow(path);
  require_equal(expected.first, narrow.getParentPathName(), "the narrow parent");
  require_equal(expected.second, narrow.getRelativePathName(), "the narrow relative name");
#endif

  std::string name = path;
  std::string extension = "kept";
  vu_file::split(name, extension);
  const std::string with_dot = model::extension_with_dot(path);
  require_equal(path.substr(0, path.size() - with_dot.size()), name, "the name before the dot");
  require_equal(with_dot.empty() ? "kept" : with_dot.substr(1), extension,
                "the extension from split()");
  require_equal(model::extension(path), vu_file::getExtension(path), "the extension");
}

void separators(const std::string& path) {
  const char last = path.empty() ? '\0' : path.back();
  const bool ends = last == '/' || last == '\\';
  std::string with = path;
  vu_file::addFileSep(with);
  require_equal(path.empty() ? ".\\" : ends ? path : path + "\\", with, "with a separator");
  std::string without = path;
  vu_file::removeLastFileSep(without);
  require_equal(path.empty() ? "."
                : ends       ? path.substr(0, path.size() - 1)
                             : path,
                without, "without the last separator");

  std::size_t from = path.size();
  while (from > 0 && path[from - 1] != '/' && path[from - 1] != '\\') --from;
  std::string folder;
  const std::string name = vu_file::getShirtFileName(path, folder);
  require_equal(path.substr(from), name, "the name in its folder");
  require_equal(from == 0 ? ".\\" : path.substr(0, from), folder, "the folder");
}

/// Repeats the rule until there are no double separators.
std::u16string single(std::u16string path) {
  for (char16_t& unit : path) {
    if (unit == u'/') unit = u'\\';
  }
  while (path.size() > 2 && path.find(u"\\\\", 2) != std::u16string::npos)
    path.erase(path.find(u"\\\\", 2), 1);
  return path;
}

void long_form(const std::string& bytes) {
  const ucs2string path{vu_utf8string(bytes)};
  const std::u16string normal = single(path.str());
  std::u16string bare = normal;
  if (bare.starts_with(u"\\\\?\\")) bare = bare.substr(4);
  std::size_t root = 0;
  if (bare.size() > 2 && bare[1] == u':' && bare[2] == u'\\' &&
      ((bare[0] >= u'a' && bare[0] <= u'z') || (bare[0] >= u'A' && bare[0] <= u'Z')))
    root = 3;
  if (bare.starts_with(u"\\")) root = bare.starts_with(u"\\\\") ? 2 : 1;
  const ucs2string found = vu_file_internal::getLongPath(path);
  if (root == 0 || bare.size() - root < 249) {
    require(found.str() == normal, "a short path is normal");
  } else {
    // The system can return a short name of any form.
    require(found.str() == u"\\\\?\\" + bare || found.size() < bare.size(), "a long path");
  }

  std::vector<std::string> parts;
  std::u16string part;
  for (const char16_t unit : path.str() + u"\\") {
    if (unit != u'\\') {
      part += unit;
    } else if (!part.empty()) {
      parts.push_back(vu_utf8string(ucs2string(part)).str());
      part.clear();
    }
  }
  const std::vector<vu_utf8string> components = vu_fileutf8::directories(path);
  require(components.size() == parts.size(), "the number of components");
  for (std::size_t i = 0; i < parts.size(); ++i)
    require_equal(parts[i], components[i].str(), "a component");
}

/// Whether the pattern matches the name. Tries every length for every star.
bool covers(std::string_view pattern, std::string_view name, int& patience) {
  if (--patience < 0) return false;
  if (pattern.empty()) return name.empty();
  if (pattern.front() == '*') {
    for (std::size_t i = 0; i <= name.size(); ++i) {
      if (covers(pattern.substr(1), name.substr(i), patience)) return true;
    }
    return false;
  }
  if (name.empty() || (pattern.front() != '?' && pattern.front() != name.front())) return false;
  return covers(pattern.substr(1), name.substr(1), patience);
}

void native_form(const std::string& path, const std::string& name) {
  std::string expected = path.starts_with("\\\\?\\") ? path.substr(4) : path;
  for (char& c : expected) {
    if (c == '\\') c = '/';
  }
  const std::string native(os::posix::NativePath(path).text());
  require_equal(expected, native, "the path for the system");
  const os::posix::Trimmed trimmed = os::posix::trim_separators(native);
  require(native.starts_with(trimmed.path), "a trimmed path is the beginning of the path");
  require(trimmed.path.size() < 2 || trimmed.path.back() != '/',
          "a trimmed path ends in no separator");
  static_cast<void>(os::posix::split_last(native));
  static_cast<void>(os::posix::trim_self_entries(native));
  const std::string folded = os::posix::fold("/" + native);
  require(folded.find("//") == std::string::npos && folded.front() == '/',
          "a folded path is plain");

  // Only the simple part of the rule: ASCII, and no dots and blanks at the end.
  int patience = 2000;
  const bool plain = path.find_first_not_of("abc*?") == std::string::npos &&
                     name.find_first_not_of("abc") == std::string::npos;
  if (!plain || path.empty() || name.empty()) {
    static_cast<void>(os::posix::matches(path, name));
    return;
  }
  const bool expected_match = covers(path, name, patience);
  if (patience >= 0)
    require(os::posix::matches(path, name) == expected_match, "whether a pattern matches a name");
}

void lines(const std::string& text) {
  std::vector<std::string> found;
  std::string_view rest = text;
  std::string_view line;
  while (next_line(rest, line)) found.emplace_back(line);
  require(found == model::lines_not_empty(text), "the lines of a file");
}

void paths(std::string_view bytes) {
  Source source(bytes);
  const std::string name = source.text();
  const std::string path = source.rest();
  cutting(path);
  separators(path);
  // Invalid UTF-8 is refused before it becomes a path.
  if (vu_utf8string(path).is_valid()) long_form(path);
  native_form(path, name);
  lines(path);
}

REGISTER_FUZZ_TARGET(paths, "paths")

}  // namespace
}  // namespace fuzz
