#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>

#include "api/in_place.h"
#include "api/store.h"
#include "file/folder_entries.h"
#include "file/handle_core.h"
#include "file/lock_limit.h"
#include "index/index_format.h"
#include "index/index_gate.h"
#include "platform/os/os.h"
#include "stg_index.h"
#include "storage/layout.h"
#include "storage/roots.h"
#include "vu_storage.h"

// Storing a version atomically or in place; copying versions in and out, and renaming them.
//
// Atomically: the bytes are written as a version with a temporary name and flushed to the device.
// Then STGIndex::rename() changes the name, with one save of the index. Readers get the old version
// or the new one, also after an interruption.

namespace api {
namespace {

/// The bytes to store: the caller's memory, or a file.
struct Source {
  const void* bytes = nullptr;
  std::size_t size = 0;
  std::string path;  ///< empty for memory

  std::string_view view() const { return {static_cast<const char*>(bytes), size}; }
};

void copy_over(const std::string& from, const std::string& to, os::IfExists if_exists) {
  os::CopiedTime time = os::CopiedTime::kKept;
  const os::Status copied = os::copy(from, to, if_exists, &time);
  if (copied.ok()) return;
  os::FileStat target;
  if (os::stat(to, target).ok() && target.is_directory)
    throw Refusal{VU_FAILED, "the target is a folder; name a file in it", told_path(to),
                  copied.code()};
  if (copied.failure() == os::Failure::kAlreadyExists)
    throw Refusal{VU_ALREADY, "the file exists; set VU_REPLACE to replace it", told_path(to)};
  // If the source exists, "not found" refers to the folder of the target.
  const bool is_missing = copied.failure() == os::Failure::kNotFound;
  const bool has_source = !is_missing || vu_file::exists(from);
  throw Refusal{has_source ? VU_FAILED : VU_NOTHING_MATCHED, "the file cannot be copied",
                told_path(is_missing && has_source ? to : from), copied.code()};
}

void copy_to_device(const std::string& from, const std::string& to) {
  copy_over(from, to, os::IfExists::kReplace);
  if (const os::Status flushed = os::flush_file(to); !flushed.ok())
    throw Refusal{VU_FAILED, "the copy cannot be written to the device", told_path(to),
                  flushed.code()};
}

/// Writes the bytes to the existing file of a version, and flushes it to the device.
void fill(const Source& source, const Place& place) {
  if (!source.path.empty()) {
    copy_to_device(source.path, place.path());
    return;
  }
  vu_file file;
  // Required: a missing file is not created. A clean may have removed the temporary version.
  static_cast<void>(open_existing(file, place.folder, place.file, vu_file_base::o_truncate));
  const bool is_locked = file.is_locked();
  const bool is_whole = is_locked && write_from(file, source.view());
  file.close();
  if (!is_locked) throw Refusal{VU_FAILED, "the lock was not granted", told_path(place.path())};
  // close() only traces a failed flush.
  if (!is_whole || Call::current().heard_failure())
    throw Refusal{VU_FAILED, {}, told_path(place.path())};
}

void drop_derived(const Address& address, const Place& old) {
  if (address.type == STG::UserFilesRepository)
    StorageGate::remove_from_other_categories(old.folder, address.name);
  if (!address.is_corporate()) return;
  const std::string parts = layout::root_of_parts(old.path(), vu_storage::getTdcTimeStamp());
  if (!is_there(parts)) return;
  vu_file::recurseRemoveDir(parts);
  if (is_there(parts))
    throw Refusal{VU_PARTLY_DONE,
                  "the version is stored, but the parts of the old one cannot be removed",
                  told_path(parts)};
}

/// The status of a stored version, after the removal of what was derived from the old one.
vu_status without_derived(const Address& address, const Place& old) {
  drop_derived(address, old);
  if (LockLimit::passed())
    throw Refusal{VU_PARTLY_DONE,
                  "the version is stored, but a locked category file keeps its line",
                  last_problem().path()};
  return done_unless_told();
}

[[noreturn]] void refuse_to_replace(const std::string& path) {
  throw Refusal{VU_ALREADY, "the version exists; set VU_REPLACE to replace it", told_path(path)};
}

/// Gives a version the name of an address, with one save of the index. When it returns, the change
/// is made and noted.
/// @return whether nothing failed after the save.
/// @throws Refusal, and what STGIndex::rename() throws; then the change is not made, unless the
/// system cannot tell. VU_ALREADY: another program has just stored the version, and VU_REPLACE is
/// not set
bool rename_entry(const std::string& folder, const std::string& name, long version,
                  const Address& address, std::uint32_t flags) {
  NewFile made(folder, address.name, address.version,
               (flags & VU_REPLACE) != 0 ? IfEntered::kReplace : IfEntered::kYield);
  const unsigned failures_before = Call::current().failures();
  std::exception_ptr raised;
  try {
    STGIndex::rename(folder, name, version, address.name, address.version);
  } catch (...) {
    raised = std::current_exception();
  }
  // Another program has just stored the version.
  if (made.has_yielded()) refuse_to_replace(folder);
  // A save that failed is only traced. After a save another step may have failed.
  const bool is_whole = !raised && Call::current().failures() == failures_before;
  // Required: without a failure the save is not checked. Another program may have replaced the
  // version since.
  if (!made.is_made() || (!is_whole && made.is_entered() != Answer::kYes)) {
    if (raised) std::rethrow_exception(raised);
    throw Refusal{VU_FAILED, is_whole ? "the version cannot be renamed" : "", told_path(folder)};
  }
  made.keep();
  Call::current().note_change();
  return is_whole;
}

/// VU_PARTLY_DONE, with the first failure as its reason. @throws Refusal with @p text if none was
/// traced, for example because there was no memory.
vu_status partly_done(const char* text, const std::string& path) {
  if (last_problem().has_text()) return VU_PARTLY_DONE;
  throw Refusal{VU_PARTLY_DONE, text, told_path(path)};
}

/// A version under a temporary name. The destructor removes it unless rename_to() did.
class Staged {
 public:
  Staged(const std::string& folder, const Address& address)
      : m_folder(folder), m_name(staged_name(address.name)), m_version(address.version) {
    m_place = {folder, {}, m_version};
    create_entry(m_name, m_place);
  }
  ~Staged() {
    if (!m_is_there) return;
    try {
      // Required: without a limit, because the temporary version must be removed.
      const LockLimit none(std::nullopt);
      STGIndex::remove(m_folder, m_name, m_version);
    } catch (...) {
      // It stays, as after an interruption.
    }
    try {
      // A copy creates the file again if a clean has removed the temporary version before.
      const std::string path = m_place.path();
      if (vu_file::exists(path) && is_entered(m_folder, m_name, m_version, path) == Answer::kNo)
        remove_new_file(path);
    } catch (...) {
      // The file stays, as after an interruption.
    }
  }
  Staged(const Staged&) = delete;
  Staged& operator=(const Staged&) = delete;

  const Place& place() const { return m_place; }
  /// When it returns, the change is made. @return whether nothing failed after the save.
  bool rename_to(const Address& address, std::uint32_t flags) {
    wait_for_index(m_folder);
    const std::string path = m_place.path();
    const bool is_whole = rename_entry(m_folder, m_name, m_version, address, flags);
    m_is_there = is_entered(m_folder, m_name, m_version, path) != Answer::kNo;
    return is_whole && !m_is_there;
  }

 private:
  std::string m_folder;
  std::string m_name;
  long m_version;
  Place m_place;
  bool m_is_there = true;
};

void store_in_place(const Address& address, const Source& source, std::uint32_t flags) {
  std::optional<SourceFile> copied;
  if (!source.path.empty()) copied.emplace(source.path, address);
  vu_file file;
  open_to_write(file, address, (flags & VU_REPLACE) != 0);
  if (!file.is_open()) {
    if (Call::current().heard_failure()) throw Refusal{VU_FAILED, {}, {}};
    refuse_to_replace({});
  }
  const std::string path = file.getFilePath();
  const bool is_locked = file.is_locked();
  bool is_whole = is_locked && is_opened_anew(address, file);
  const unsigned failures_before = Call::current().failures();
  if (is_whole) is_whole = copied ? copied->copy_to(file) : write_from(file, source.view());
  file.close();
  if (!is_locked) throw Refusal{VU_FAILED, "the lock was not granted", told_path(path)};
  if (!is_whole || Call::current().failures() != failures_before)
    throw Refusal{VU_FAILED, {}, told_path(path)};
  Call::current().note_change();
}

/// Stores a version. What it tells is set as soon as the version is stored, also if it throws then.
/// @param how null, or receives VU_STORED_AT_ONCE or VU_STORED_IN_PLACE.
/// @param is_whole receives whether nothing failed after the save: no old file stays.
vu_status store(const Address& address, const Source& source, std::uint32_t flags,
                std::int32_t* how, bool& is_whole) {
  Place place;
  if (!source.path.empty() && !is_there(source.path))
    throw Refusal{VU_NOTHING_MATCHED, "there is no such file", told_path(source.path)};
  const bool existed = find(address, place);
  if (existed && (flags & VU_REPLACE) == 0) refuse_to_replace(place.path());
  std::string folder;
  bool in_place = (flags & VU_IN_PLACE) != 0;
  if (!in_place) {
    if (!find_folder(address, true, folder)) throw Refusal{VU_FAILED, {}, {}};
    // Reads of this name return a file with exactly this name, whatever the index contains.
    in_place = is_there(folder + "\\" + address.name);
  }
  if (in_place) {
    store_in_place(address, source, flags);
    is_whole = true;
  } else {
    Staged staged(folder, address);
    fill(source, staged.place());
    is_whole = staged.rename_to(address, flags);
  }
  if (how != nullptr) *how = in_place ? VU_STORED_IN_PLACE : VU_STORED_AT_ONCE;
  const vu_status status =
      existed && !in_place ? without_derived(address, place) : done_unless_told();
  return is_whole ? status : partly_done("the version is stored, but an old file may stay", folder);
}

vu_status store(const Address& address, const Source& source, std::uint32_t flags,
                std::int32_t* how) {
  bool is_whole = false;
  return store(address, source, flags, how, is_whole);
}

/// Whether a version still has a file. After the deadline the index may be locked.
bool stays(const Address& address, const Place& old) {
  if (LockLimit::passed()) return vu_file::exists(old.path());
  return is_entered(old.folder, address.name, address.version, old.path()) != Answer::kNo;
}

constexpr const char* kOldOneStays =
    "the version has its new name, but the old one cannot be removed";

/// Removes a version that was copied to @p folder. Required: only the file that was copied. Another
/// program may have stored other bytes under the name since. In the same folder lines in category
/// files keep the old name.
vu_status remove_copied(const Address& address, const Place& copied, const std::string& folder) {
  const auto is_it = [&](const std::string& file) { return file == copied.file; };
  const bool is_gone = IndexGate::remove_if(copied.folder, address.name, address.version, is_it);
  if (is_gone && copied.folder != folder)
    StorageGate::remove_lines(copied.folder, address.name, address.type);
  if (stays(address, copied)) throw Refusal{VU_PARTLY_DONE, kOldOneStays, told_path(copied.path())};
  return status_of_removal();
}

/// Copies a version to a folder, then removes the old one.
/// @param replaced the file of the version that has the new name before; empty if there is none.
vu_status move(const Address& from, const Place& old, const Address& to, const std::string& folder,
               std::uint32_t flags, const std::string& replaced) {
  wait_for_index(old.folder);
  vu_status status = VU_DONE;
  std::int32_t how = VU_STORED_AT_ONCE;
  bool is_whole = false;
  std::exception_ptr left;
  try {
    status = store(to, {nullptr, 0, old.path()}, flags, &how, is_whole);
  } catch (...) {
    if (!Call::current().is_changed()) throw;
    left = std::current_exception();
  }
  // Required, as within one folder: while a replaced file stays, a program that has loaded the
  // index before can give it the new name again. Then only the old version has the bytes. It may be
  // the file of a version that another program has stored since the look.
  const bool stays = how == VU_STORED_AT_ONCE && !replaced.empty() && vu_file::exists(replaced);
  if (stays)
    throw Refusal{VU_PARTLY_DONE,
                  "the version is stored under its new name; the old one stays, because a file "
                  "that it replaces cannot be removed",
                  told_path(replaced)};
  if (!is_whole) {
    if (left) std::rethrow_exception(left);
    return status;
  }
  const vu_status removed = remove_copied(from, old, folder);
  if (left) std::rethrow_exception(left);
  return status != VU_DONE ? status : removed;
}

vu_status rename_found(const Address& from, const Place& old, const Address& to,
                       std::uint32_t flags) {
  Place place;
  bool existed = find(to, place);
  if (existed && place.path() == old.path()) {
    if (from.name == to.name && from.version == to.version) return VU_DONE;
    // The file bears the new name, so a lookup finds it for every version of that name.
    const auto entered = IndexGate::file_of(old.folder, to.name, to.version);
    if (entered == old.file) return VU_DONE;
    existed = entered.has_value();
    if (existed) place.file = *entered;
  }
  if (existed && (flags & VU_REPLACE) == 0) refuse_to_replace(place.path());
  std::string folder;
  if (!find_folder(to, true, folder)) throw Refusal{VU_FAILED, {}, {}};
  // Another file with the new name would hide a renamed version.
  const bool is_hidden = !may_be_one_file(old.file, to.name) && is_there(folder + "\\" + to.name);
  if (folder != old.folder || is_hidden)
    return move(from, old, to, folder, flags, existed ? place.path() : "");
  wait_for_index(folder);
  const bool is_whole = rename_entry(folder, from.name, from.version, to, flags);
  const vu_status status = existed ? without_derived(to, place) : done_unless_told();
  // Required: without a limit. After the save, the status must say what happened.
  const LockLimit none(std::nullopt);
  if (stays(from, old)) throw Refusal{VU_PARTLY_DONE, kOldOneStays, told_path(old.path())};
  return is_whole ? status
                  : partly_done("the version has its new name, but an old file may stay", folder);
}

vu_status rename(Address from, const Address& to, std::uint32_t flags) {
  for (int tries = 0;; ++tries) {
    const Place old = place_of(from);
    from.version = old.version;
    refuse_if_hidden(from, old);
    try {
      return rename_found(from, old, to, flags);
    } catch (const Refusal&) {
      // Without a failure another program has removed or replaced the version.
      const Call& call = Call::current();
      if (call.is_changed() || call.heard_failure() || !has_moved(from, old, tries)) throw;
    }
  }
}

constexpr std::uint32_t kStoreFlags = VU_REPLACE | VU_IN_PLACE;

}  // namespace
}  // namespace api

using api::run;
using api::StoreUse;
using api::Version;

vu_status vu_put(vu_store* store, const vu_document* document, const void* bytes, size_t size,
                 uint32_t flags, int32_t* how) {
  return run("vu_put", [&]() -> vu_status {
    api::require(bytes != nullptr || size == 0, "bytes is null");
    api::require((flags & ~api::kStoreFlags) == 0, "unknown flags");
    const StoreUse use(store);
    return api::store(api::address_of(*use, document, Version::kNamed), {bytes, size, {}}, flags,
                      how);
  });
}

vu_status vu_copy_in(vu_store* store, const vu_document* document, const char* path, uint32_t flags,
                     int32_t* how) {
  return run("vu_copy_in", [&]() -> vu_status {
    api::require((flags & ~api::kStoreFlags) == 0, "unknown flags");
    const StoreUse use(store);
    const api::Address address = api::address_of(*use, document, Version::kNamed);
    return api::store(address, {nullptr, 0, api::path_of(path)}, flags, how);
  });
}

vu_status vu_copy_out(vu_store* store, const vu_document* document, const char* path,
                      uint32_t flags) {
  return run("vu_copy_out", [&]() -> vu_status {
    api::require((flags & ~std::uint32_t{VU_REPLACE}) == 0, "unknown flags");
    const StoreUse use(store);
    const std::string to = api::path_of(path);
    const auto if_exists = (flags & VU_REPLACE) != 0 ? os::IfExists::kReplace : os::IfExists::kFail;
    const auto copy = [&](const api::Place& place) {
      api::copy_over(place.path(), to, if_exists);
      return VU_DONE;
    };
    return api::at_place_of(api::address_of(*use, document, Version::kAny), copy);
  });
}

vu_status vu_rename(vu_store* store, const vu_document* from, const vu_document* to,
                    uint32_t flags) {
  return run("vu_rename", [&]() -> vu_status {
    const StoreUse use(store);
    api::require((flags & ~std::uint32_t{VU_REPLACE}) == 0, "unknown flags");
    const api::Address old_address = api::address_of(*use, from, Version::kAny);
    return api::rename(old_address, api::address_of(*use, to, Version::kNamed), flags);
  });
}
