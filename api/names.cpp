#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "api/store.h"
#include "index/index_format.h"
#include "index/index_gate.h"
#include "platform/os/os.h"
#include "vu_file.h"
#include "vu_i18n.h"

// Names on their way in and out: the guard, and the encoding.

namespace api {
namespace {

enum Character : std::uint8_t {
  kPlain = 0,
  kSeparator = 1,
  kPattern = 2,
  kLineEnd = 4,
  kColon = 8,
  kForeign = 16,  ///< no ASCII
};

constexpr auto kCharacters = [] {
  std::array<std::uint8_t, 256> table{};
  table['/'] = table['\\'] = kSeparator;
  table['*'] = table['?'] = kPattern;
  table['\n'] = table['\r'] = kLineEnd;
  table[':'] = kColon;
  for (std::size_t c = 128; c < table.size(); ++c) table[c] = kForeign;
  return table;
}();

std::uint8_t characters_of(std::string_view name) {
  std::uint8_t found = kPlain;
  for (const char c : name) found |= kCharacters[static_cast<unsigned char>(c)];
  return found;
}

/// Why a name means something else than a name; null when it does not.
const char* why_refused(std::string_view name) {
  if (name.empty()) return "it is empty";
  const std::uint8_t characters = characters_of(name);
  if ((characters & (kSeparator | kPattern | kLineEnd)) != 0) {
    if ((characters & kSeparator) != 0) return "it holds a separator";
    return (characters & kPattern) != 0 ? "it is a pattern" : "it holds a line end";
  }
  if (name.front() == '.' && (name == "." || name == ".."))
    return "it names the folder itself or the one above";
  if (name.front() == 'i' && index_format::is_index_file(name))
    return "it is a name of the index itself";
  return nullptr;
}

/// Owners and files become names in folders: Windows reads more into those.
const char* why_no_file_name(std::string_view name) {
  // Of the other systems "/" is the separator itself.
  static const bool is_narrower = os::native_form("/") != "/";
  if (!is_narrower) return nullptr;
  if ((characters_of(name) & kColon) != 0) return "it holds a colon";
  if (name.ends_with('.') || name.ends_with(' ')) return "it ends with a dot or a blank";
  return nullptr;
}

/// Whether a name may be that of a file, or of a folder of parts, that the library has made.
bool may_be_made_here(std::string_view name) {
  constexpr std::size_t kDigits = 8;
  return name.size() >= kDigits &&
         name.substr(0, kDigits).find_first_not_of("0123456789") == std::string_view::npos;
}

[[noreturn]] void refuse(const char* what, const char* name, const char* why) {
  throw Refusal{VU_REFUSED, std::string(what) + " is refused: " + why, name};
}

std::string narrow(const char* what, const char* text) {
  // ASCII is the same in every code page.
  if ((characters_of(text) & kForeign) == 0) return text;
  std::string result;
  if (os::narrow_of(text, result)) return result;
  throw Refusal{VU_NO_NAME, std::string(what) + " has no place in the code page of the process",
                text};
}

}  // namespace

STG::RepositoryType type_of(std::int32_t area) {
  switch (area) {
    case VU_AREA_USER:
      // The type whose removals also drop the lines of "attribut.txt".
      return STG::UserFilesRepository;
    case VU_AREA_DOCS:
      return STG::CorporateRepository;
    case VU_AREA_MAIL:
      return STG::MailRepository;
    default:
      throw Refusal{VU_USAGE, "there is no such area", {}};
  }
}

std::string owner_of(const Store& store, const char* owner) {
  // Some operations do nothing for an empty owner, also where owners share the folders.
  constexpr const char* kNone = "_";
  const bool is_named = owner != nullptr && *owner != '\0';
  if (!is_named && (!store.owners_have_folders || store.guard == Guard::kOff)) return kNone;
  if (!is_named) refuse("the owner", "", "it is empty");
  if (store.guard == Guard::kOn) {
    const char* why = why_refused(owner);
    if (why == nullptr) why = why_no_file_name(owner);
    if (why != nullptr) refuse("the owner", owner, why);
  }
  return narrow("the owner", owner);
}

std::string entry_of(const Store& store, const char* name) {
  require(name, "the name");
  if (store.guard == Guard::kOn) {
    if (const char* const why = why_refused(name)) refuse("the name", name, why);
  } else if (*name == '\0') {
    throw Refusal{VU_USAGE, "the name is empty", {}};
  }
  // The index keeps the name as it is; only its extension is part of a file's name.
  const std::string_view extension = index_format::extension_of(name);
  if ((characters_of(extension) & kForeign) != 0 &&
      narrow("the extension", std::string(extension).c_str()) != extension)
    throw Refusal{VU_NO_NAME, "the extension is not the same in the code page of the process",
                  name};
  return name;
}

std::string file_name_of(const Store& store, const char* what, const char* name) {
  require(name, what);
  if (store.guard == Guard::kOn) {
    const char* why = why_refused(name);
    if (why == nullptr) why = why_no_file_name(name);
    if (why != nullptr) refuse(what, name, why);
  }
  return narrow(what, name);
}

std::string path_of(const char* path) {
  require(path, "the path");
  require(*path != '\0', "the path is empty");
  return narrow("the path", path);
}

void refuse_anothers_file(const Store& store, const Address& address) {
  if (store.guard == Guard::kOff || !may_be_made_here(address.name)) return;
  std::string folder;
  if (!find_folder(address, false, folder)) return;
  const std::string path = folder + "\\" + address.name;
  if (!vu_file::exists(path)) return;
  bool is_anothers = vu_file::is_dir(path);
  IndexGate::visit(folder, [&](std::string_view logical, long, const std::string& file) {
    is_anothers = is_anothers || (file == address.name && logical != address.name);
    return !is_anothers;
  });
  if (is_anothers)
    refuse("the name", address.name.c_str(), "it is that of another document's file");
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

std::string told_path(const std::string& path) { return os::native_form(path); }

}  // namespace api
