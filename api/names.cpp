#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <string_view>

#include "api/store.h"
#include "file/path_text.h"
#include "index/index_format.h"
#include "index/index_gate.h"
#include "platform/os/os.h"
#include "storage/layout.h"
#include "vu_file.h"
#include "vu_i18n.h"

// Names passed in and out: the guard and the encoding.

namespace api {
namespace {

enum Character : std::uint8_t {
  kPlain = 0,
  kSeparator = 1,
  kPattern = 2,
  kLineEnd = 4,
  kWindows = 8,   ///< with a meaning in names on Windows only
  kForeign = 16,  ///< not ASCII
};

constexpr auto kCharacters = [] {
  std::array<std::uint8_t, 256> table{};
  table['/'] = table['\\'] = kSeparator;
  table['*'] = table['?'] = kPattern;
  table['\n'] = table['\r'] = kLineEnd;
  // A colon separates a stream. The others are patterns of the system's search.
  table[':'] = table['<'] = table['>'] = table['"'] = kWindows;
  for (std::size_t c = 128; c < table.size(); ++c) table[c] = kForeign;
  return table;
}();

/// On the other systems the native separator is "/".
bool is_windows() {
  static const bool is = os::native_form("/") != "/";
  return is;
}

}  // namespace

bool may_be_one_file(std::string_view a, std::string_view b) {
  if (!is_windows()) return a == b;
  const auto fold = [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 128) return 128;
    return c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : int{c};
  };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [&](char x, char y) { return fold(x) == fold(y); });
}

namespace {

/// Whether a name is a device on Windows, with any extension: "nul.txt".
bool is_device(std::string_view name) {
  std::string stem(name.substr(0, name.find('.')));
  while (stem.ends_with(' ')) stem.pop_back();
  for (char& c : stem) c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  if (stem.size() > 3 && (stem.starts_with("COM") || stem.starts_with("LPT"))) {
    const std::string_view number = std::string_view(stem).substr(3);
    // The superscript digits of Latin-1 count as digits there, in UTF-8.
    if (number == "\xC2\xB9" || number == "\xC2\xB2" || number == "\xC2\xB3") return true;
    return number.size() == 1 && number[0] >= '0' && number[0] <= '9';
  }
  static constexpr std::string_view kDevices[] = {"CON", "PRN", "AUX", "NUL", "CONIN$", "CONOUT$"};
  return std::find(std::begin(kDevices), std::end(kDevices), stem) != std::end(kDevices);
}

std::uint8_t characters_of(std::string_view name) {
  std::uint8_t found = kPlain;
  for (const char c : name) found |= kCharacters[static_cast<unsigned char>(c)];
  return found;
}

/// Why a name is not a plain file name on Windows; null if it is one.
const char* why_no_windows_name(std::string_view name, std::uint8_t characters) {
  if ((characters & kWindows) != 0) return "it contains \":\", \"<\", \">\" or a quotation mark";
  if (name.ends_with('.') || name.ends_with(' ')) return "it ends with a dot or a blank";
  return is_device(name) ? "it is the name of a device" : nullptr;
}

/// Why a name is not a plain file name; null if it is one.
const char* why_refused(std::string_view name, std::uint8_t characters) {
  if (name.empty()) return "it is empty";
  if ((characters & (kSeparator | kPattern | kLineEnd)) != 0) {
    if ((characters & kSeparator) != 0) return "it contains a separator";
    return (characters & kPattern) != 0 ? "it contains \"*\" or \"?\"" : "it contains a line end";
  }
  if (name.front() == '.' && (name == "." || name == ".."))
    return "it is the folder itself or its parent";
  if ((name.front() == 'i' || name.front() == 'I') &&
      (may_be_one_file(name, index_format::kIndexFile) ||
       may_be_one_file(name, index_format::kCounterFile)))
    return "the index uses this name";
  if (name.front() == '.' && may_be_one_file(name.substr(0, kStagedPrefix.size()), kStagedPrefix))
    return "the library uses this prefix for temporary names";
  // The library also looks for a file with this name. On Windows more names have a special meaning.
  return is_windows() ? why_no_windows_name(name, characters) : nullptr;
}

/// Whether the name may be that of another document's file or of a folder of parts. The library
/// begins such names with eight digits. Other files were adopted, and have the name of their own
/// document; but on Windows that name has several spellings.
bool may_be_anothers(std::string_view name) {
  constexpr std::size_t kDigits = 8;
  if (is_windows()) return true;
  return name.size() >= kDigits &&
         name.substr(0, kDigits).find_first_not_of("0123456789") == std::string_view::npos;
}

/// Whether a name of a folder leads to the file with another name there.
bool leads_to(const std::string& folder, const std::string& file, const std::string& name) {
  if (file == name) return true;
  if (!may_be_one_file(file, name)) return false;
  bool is_same = false;
  const os::Status compared =
      os::same_file(path_text::join(folder, file), path_text::join(folder, name), is_same);
  // If the system does not tell, the name is not used.
  return is_same || !compared.ok();
}

[[noreturn]] void refuse(const char* what, std::string_view name, const char* why) {
  throw Refusal{VU_REFUSED, std::string(what) + " is refused: " + why, std::string(name)};
}

/// @return the characters in the name. @throws Refusal if the guard refuses the name
std::uint8_t checked_characters(const Store& store, const char* what, std::string_view name) {
  const std::uint8_t characters = characters_of(name);
  if (store.guard == Guard::kOff) return characters;
  if (const char* const why = why_refused(name, characters)) refuse(what, name, why);
  return characters;
}

std::string narrow(const char* what, std::string_view text, std::uint8_t characters) {
  // ASCII is the same in every code page.
  if ((characters & kForeign) == 0) return std::string(text);
  std::string result;
  if (os::narrow_of(std::string(text), result)) return result;
  throw Refusal{VU_NO_NAME,
                std::string(what) + " cannot be converted to the code page of the process",
                std::string(text)};
}

}  // namespace

std::string staged_name(const std::string& name) {
  static std::atomic<std::uint32_t> count = 0;
  std::random_device random;
  char text[32] = {};
  std::snprintf(text, sizeof text, "%08x%08x%08x", random(), random(), ++count);
  return std::string(kStagedPrefix) + text + std::string(index_format::extension_of(name));
}

STG::RepositoryType type_of(std::int32_t area) {
  switch (area) {
    case VU_AREA_USER:
      // With this type a removal also drops lines of "attribut.txt".
      return STG::UserFilesRepository;
    case VU_AREA_DOCS: return STG::CorporateRepository;
    case VU_AREA_MAIL: return STG::MailRepository;
    default: throw Refusal{VU_USAGE, "there is no such area; use VU_AREA_...", {}};
  }
}

std::string owner_of(const Store& store, const char* owner) {
  // Some operations do nothing for an empty owner, even where owners share the folders.
  constexpr const char* kNone = "_";
  const bool is_named = owner != nullptr && *owner != '\0';
  if (!is_named && !store.owners_have_folders) return kNone;
  if (!is_named && store.guard == Guard::kOff) throw Refusal{VU_USAGE, "the owner is empty", {}};
  if (!is_named) refuse("the owner", "", "it is empty");
  const std::string_view name = owner;
  return narrow("the owner", name, checked_characters(store, "the owner", name));
}

std::string entry_of(const Store& store, const char* text) {
  require(text, "the name");
  const std::string_view name = text;
  const std::uint8_t characters = checked_characters(store, "the name", name);
  require(!name.empty(), "the name is empty");
  if ((characters & kLineEnd) != 0) require_one_line(name);
  if ((characters & kForeign) == 0) return std::string(name);
  // The index stores the name unchanged. Only its extension becomes part of a file name.
  const std::string_view extension = index_format::extension_of(name);
  if (narrow("the extension", extension, characters_of(extension)) != extension)
    throw Refusal{VU_NO_NAME, "the extension is different in the code page of the process",
                  std::string(name)};
  return std::string(name);
}

void require_one_line(std::string_view name) {
  // Also without the guard: an entry is one line of the index. The rest after the line feed would
  // be the entry of another document.
  require(name.find('\n') == std::string_view::npos, "the name contains a line feed");
}

std::string file_name_of(const Store& store, const char* what, const char* name) {
  require(name, what);
  return narrow(what, name, checked_characters(store, what, name));
}

std::string rendition_of(const Store& store, const char* text) {
  constexpr const char* kWhat = "the rendition";
  const std::string rendition = file_name_of(store, kWhat, text);
  if (store.guard == Guard::kOff) return rendition;
  // The name after "html@" or "pdf@", or all of it: the folder of the parts.
  const std::string name = layout::folders_to_read(rendition).of_parts;
  if (const char* const why = why_refused(name, characters_of(name))) refuse(kWhat, text, why);
  // Required: writing splits at every "@", reading only after "html" and "pdf".
  if (name.find('@') != std::string::npos)
    refuse(kWhat, text, "\"@\" follows only \"html\" and \"pdf\"");
  if (may_be_one_file(name, layout::kPreloadFolder))
    refuse(kWhat, text, "it is the folder of the preload copies");
  return rendition;
}

std::string path_of(const char* path) {
  require(path, "the path");
  require(*path != '\0', "the path is empty");
  return narrow("the path", path, characters_of(path));
}

void refuse_anothers_file(const Store& store, const Address& address) {
  if (store.guard == Guard::kOff || !may_be_anothers(address.name)) return;
  std::string folder;
  if (!find_folder(address, false, folder)) return;
  const std::string path = folder + "\\" + address.name;
  if (!vu_file::exists(path)) return;
  bool is_anothers = vu_file::is_dir(path);
  const auto compare = [&](std::string_view logical, long, const std::string& file) {
    is_anothers = is_anothers || (logical != address.name && leads_to(folder, file, address.name));
    return !is_anothers;
  };
  static_cast<void>(IndexGate::visit(folder, compare));
  if (is_anothers) refuse("the name", address.name, "it is the physical name of another document");
}

Address address_of(const Store& store, const vu_document* document, Version version) {
  require(document, "the document");
  check_size(document, document->struct_size, sizeof *document);
  require(document->reserved == 0, "a reserved field is not 0");
  Address address;
  address.type = type_of(document->area);
  address.owner = owner_of(store, document->owner);
  address.name = entry_of(store, document->name);
  refuse_anothers_file(store, address);
  if (version == Version::kNoneIs0) return address;
  constexpr std::int64_t kLast = 2147483647;
  const bool is_latest = document->version == VU_LATEST && version == Version::kAny;
  require(is_latest || (document->version >= 0 && document->version <= kLast),
          "the version is out of range");
  address.version = static_cast<long>(document->version);
  return address;
}

std::string told_name(std::string_view name) {
  std::string text(name);
  return vu_utf8string(text).is_valid() ? text : os::utf8_of(text);
}

const char* told_name(std::string_view name, std::string& text) {
  if ((characters_of(name) & kForeign) == 0) {
    text.assign(name);
  } else {
    text = told_name(name);
  }
  return text.c_str();
}

std::string told_path(const std::string& path) { return os::native_form(path); }

}  // namespace api
