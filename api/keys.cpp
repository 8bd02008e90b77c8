#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "api/in_place.h"
#include "api/lists.h"
#include "api/store.h"
#include "file/handle_core.h"
#include "file/lock_limit.h"
#include "stg_index.h"
#include "storage/key_text.h"
#include "vu_file_except.h"
#include "vu_storage.h"

// Key files and profiles. A change holds the lock of the file from reading to writing.

namespace api {
namespace {

/// A key file: in the storage, or a plain file in a folder.
struct KeyFile {
  Address address;
  std::string folder;  ///< of a plain file
  std::string name;

  bool is_plain() const { return !folder.empty(); }
};

KeyFile key_file_of(const Store& store, const vu_document* document) {
  return {address_of(store, document, Version::kNoneIs0), {}, {}};
}

KeyFile profile_of(const Store& store, const char* owner, const char* file) {
  const std::string name =
      file_name_of(store, "the profile", file != nullptr ? file : "profile.txt");
  if (owner != nullptr) {
    require_one_line(name);
    const Address address = {STG::UserFilesRepository, owner_of(store, owner), name, 0};
    refuse_anothers_file(store, address);
    return {address, {}, {}};
  }
  KeyFile master = {{}, vu_storage::getConfigDirPath(), name};
  if (file == nullptr && !vu_file::exists(master.folder + "\\" + name)) master.name = "master.txt";
  return master;
}

std::string line_name(const Store& store, const char* line) {
  require(line, "the line");
  const std::string name = line;
  if (store.guard == Guard::kOn && (name.empty() || name.find_first_of("=\n\r\t") != name.npos))
    throw Refusal{VU_REFUSED, "a line name is empty, or contains \"=\", a line end or a tab", {}};
  return name;
}

std::string line_value(const Store& store, const char* value) {
  require(value, "the value");
  const std::string text = value;
  if (store.guard == Guard::kOn && text.find_first_of("\n\r\t") != text.npos)
    throw Refusal{VU_REFUSED, "a value contains a line end or a tab", {}};
  return text;
}

STG::NameValueSeq lines_of(std::string_view text) {
  STG::NameValueSeq lines;
  key_text::Lines all(text);
  std::string_view line;
  while (all.next(line)) {
    if (const auto pair = key_text::split(line, key_text::Separator::kFirst))
      lines.push_back({std::string(pair->name), std::string(pair->value)});
  }
  return lines;
}

Place place_of(const KeyFile& file) {
  if (file.is_plain()) {
    const Place place = {file.folder, file.name, 0};
    if (is_there(place.path())) return place;
    throw Refusal{VU_NOTHING_MATCHED, "there is no such key file", told_path(place.path())};
  }
  Place place;
  if (!find(file.address, place))
    throw Refusal{VU_NOTHING_MATCHED, "there is no such key file", {}};
  return place;
}

/// Calls @p use with the place of a plain key file. @throws Refusal VU_NOTHING_MATCHED also if the
/// file is removed meanwhile
template <class Use>
auto at_plain(const KeyFile& file, const Use& use) {
  const Place place = place_of(file);
  try {
    return use(place);
  } catch (const vu_file_except&) {
    if (!LockLimit::passed()) static_cast<void>(place_of(file));
    throw;
  }
}

STG::NameValueSeq load(const KeyFile& from) {
  const auto read = [](const Place& place) {
    vu_file file;
    file.open(place.folder, place.file, vu_file_base::o_read);
    // Without the lock the lines could be those of a change that is not complete.
    check_locked(file);
    return lines_of(read_to_end(file).view());
  };
  return from.is_plain() ? at_plain(from, read) : at_place_of(from.address, read);
}

vu_status get(const KeyFile& from, const std::string& name, char* buffer, std::size_t room,
              std::size_t* size) {
  for (const STG::NameValue& line : load(from)) {
    if (line.name == name) return give_text(line.value, buffer, room, size);
  }
  throw Refusal{VU_NOTHING_MATCHED, "there is no such line", {}};
}

vu_status each(const KeyFile& from, vu_line_visitor visit, void* context) {
  require_callback(visit);
  for (const STG::NameValue& line : load(from))
    go_on([&] { return visit(context, line.name.c_str(), line.value.c_str()); });
  return VU_DONE;
}

/// The text after a change: a new value for the name or, without a value, no line of that name. All
/// other lines stay, also those without a separator; each ends with a line feed.
/// @return nothing if there is no line to remove.
std::optional<std::string> changed(std::string_view text, const std::string& name,
                                   const std::optional<std::string>& value) {
  const auto line_of_name = [&] { return name + "=" + *value + "\n"; };
  std::string result;
  bool is_there = false;
  key_text::Lines lines(text);
  std::string_view line;
  while (lines.next(line)) {
    const auto pair = key_text::split(line, key_text::Separator::kFirst);
    if (!pair || pair->name != name) {
      result.append(line).append("\n");
      continue;
    }
    if (value && !is_there) result += line_of_name();
    is_there = true;
  }
  if (!is_there && !value) return std::nullopt;
  if (!is_there) result += line_of_name();
  return result;
}

/// Opens a key file with its lock, to change it. @throws Refusal, vu_file_except
Place open_to_change(const KeyFile& of, Missing missing, vu_file& file) {
  if (of.is_plain() && missing == Missing::kIsCreated) {
    file.open(of.folder, of.name, vu_file_base::o_append);
    check_locked(file);
    return {of.folder, of.name, 0};
  }
  if (of.is_plain()) {
    return at_plain(of, [&](const Place& place) {
      static_cast<void>(open_existing(file, place.folder, place.file, vu_file_base::o_append));
      check_locked(file);
      return place;
    });
  }
  const auto look = [&] {
    if (missing == Missing::kIsAFailure) return place_of(of);
    Place place;
    if (!find_folder(of.address, true, place.folder)) throw Refusal{VU_FAILED, {}, {}};
    find_or_create(of.address, place);
    return place;
  };
  // Required: no missing file is created. Another program may have replaced or removed the key file
  // since the look, and a file without an entry would become a document by adoption.
  return at_place(of.address, look, [&](const Place& place) {
    open_of(file, of.address, place, vu_file_base::o_append);
    check_locked(file);
    return place;
  });
}

vu_status change(const KeyFile& of, const std::string& name,
                 const std::optional<std::string>& value) {
  vu_file file;
  const Place place = open_to_change(of, value ? Missing::kIsCreated : Missing::kIsAFailure, file);
  // Also of a new file: another program may have written to it meanwhile.
  const std::optional<std::string> text = changed(read_to_end(file).view(), name, value);
  if (!text) throw Refusal{VU_NOTHING_MATCHED, "there is no such line", {}};
  // Failures before this point have been survived. If they stopped the call now, the lines would be
  // lost.
  const unsigned failures_before = Call::current().failures();
  const Rewritten rewritten = rewrite(file, *text);
  if (rewritten == Rewritten::kNotAtAll) throw Refusal{VU_FAILED, {}, told_path(place.path())};
  file.close();
  if (rewritten != Rewritten::kWhole || Call::current().failures() != failures_before)
    return failed_or(VU_FAILED,
                     "not all lines were written, and the file is cut short; write it again",
                     told_path(place.path()));
  Call::current().note_change();
  return done_unless_told();
}

}  // namespace
}  // namespace api

using api::run;
using api::StoreUse;

vu_status vu_key_get(vu_store* store, const vu_document* document, const char* line, char* buffer,
                     size_t room, size_t* size) {
  return run("vu_key_get", [&]() -> vu_status {
    const StoreUse use(store);
    return api::get(api::key_file_of(*use, document), api::line_name(*use, line), buffer, room,
                    size);
  });
}

vu_status vu_key_set(vu_store* store, const vu_document* document, const char* line,
                     const char* value) {
  return run("vu_key_set", [&]() -> vu_status {
    const StoreUse use(store);
    return api::change(api::key_file_of(*use, document), api::line_name(*use, line),
                       api::line_value(*use, value));
  });
}

vu_status vu_key_delete(vu_store* store, const vu_document* document, const char* line) {
  return run("vu_key_delete", [&]() -> vu_status {
    const StoreUse use(store);
    return api::change(api::key_file_of(*use, document), api::line_name(*use, line), std::nullopt);
  });
}

vu_status vu_key_each(vu_store* store, const vu_document* document, vu_line_visitor visit,
                      void* context) {
  return run("vu_key_each", [&]() -> vu_status {
    const StoreUse use(store);
    return api::each(api::key_file_of(*use, document), visit, context);
  });
}

vu_status vu_profile_get(vu_store* store, const char* owner, const char* file, const char* line,
                         char* buffer, size_t room, size_t* size) {
  return run("vu_profile_get", [&]() -> vu_status {
    const StoreUse use(store);
    return api::get(api::profile_of(*use, owner, file), api::line_name(*use, line), buffer, room,
                    size);
  });
}

vu_status vu_profile_set(vu_store* store, const char* owner, const char* file, const char* line,
                         const char* value) {
  return run("vu_profile_set", [&]() -> vu_status {
    const StoreUse use(store);
    return api::change(api::profile_of(*use, owner, file), api::line_name(*use, line),
                       api::line_value(*use, value));
  });
}

vu_status vu_profile_delete(vu_store* store, const char* owner, const char* file,
                            const char* line) {
  return run("vu_profile_delete", [&]() -> vu_status {
    const StoreUse use(store);
    return api::change(api::profile_of(*use, owner, file), api::line_name(*use, line),
                       std::nullopt);
  });
}

vu_status vu_profile_each(vu_store* store, const char* owner, const char* file,
                          vu_line_visitor visit, void* context) {
  return run("vu_profile_each", [&]() -> vu_status {
    const StoreUse use(store);
    return api::each(api::profile_of(*use, owner, file), visit, context);
  });
}
