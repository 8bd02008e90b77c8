#include <atomic>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <random>
#include <string>
#include <string_view>

#include "api/in_place.h"
#include "api/store.h"
#include "file/handle_core.h"
#include "file/lock_limit.h"
#include "index/index_format.h"
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

/// A temporary name that no other writer has, with the extension of @p name.
std::string staged_name(const std::string& name) {
  static std::atomic<std::uint32_t> count = 0;
  std::random_device random;
  char text[32] = {};
  std::snprintf(text, sizeof text, "%08x%08x%08x", random(), random(), ++count);
  return std::string(kStagedPrefix) + text + std::string(index_format::extension_of(name));
}

void copy_over(const std::string& from, const std::string& to, os::IfExists if_exists) {
  os::CopiedTime time = os::CopiedTime::kKept;
  const os::Status copied = os::copy(from, to, if_exists, &time);
  if (copied.ok()) return;
  if (copied.failure() == os::Failure::kAlreadyExists)
    throw Refusal{VU_ALREADY, "the file exists; set VU_REPLACE to replace it", told_path(to)};
  // If the source exists, "not found" refers to the folder of the target.
  const bool is_missing = copied.failure() == os::Failure::kNotFound;
  const bool has_source = !is_missing || vu_file::exists(from);
  throw Refusal{has_source ? VU_FAILED : VU_NOTHING_MATCHED, "the file cannot be copied",
                told_path(is_missing && has_source ? to : from), copied.code()};
}

/// Writes the bytes to the existing file of a version, and flushes it to the device.
void fill(const Source& source, const Place& place) {
  if (!source.path.empty()) {
    copy_over(source.path, place.path(), os::IfExists::kReplace);
    if (!os::flush_file(place.path()).ok())
      throw Refusal{VU_FAILED, "the copy cannot be written to the device", told_path(place.path())};
    return;
  }
  vu_file file;
  file.open(place.folder, place.file, vu_file_base::o_truncate);
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
    StorageGate::remove_from_categories(old.folder, address.name);
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
  Call::current().note_change();
  try {
    drop_derived(address, old);
  } catch (const Refusal& refusal) {
    throw Refusal{VU_PARTLY_DONE, refusal.text, refusal.path, refusal.code};
  } catch (...) {
    // The reason was traced, unless there was no memory for it.
    throw Refusal{VU_PARTLY_DONE, {}, told_path(old.path())};
  }
  if (LockLimit::passed())
    throw Refusal{VU_PARTLY_DONE,
                  "the version is stored, but a locked category file keeps its line",
                  last_problem().path()};
  return done_unless_told();
}

/// Throws unless the version has a file other than @p before: a failed save is only traced.
void check_stored(const Address& address, const std::string& before) {
  Place now;
  if (!find(address, now) || now.file == before)
    throw Refusal{VU_FAILED, "the index was not saved", told_path(now.path())};
}

/// A version under a temporary name. The destructor removes it unless rename_to() succeeded.
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
  }
  Staged(const Staged&) = delete;
  Staged& operator=(const Staged&) = delete;

  const Place& place() const { return m_place; }
  /// @param before the file of the version that is replaced; empty when there is none.
  void rename_to(const Address& address, const std::string& before) {
    wait_for_index(m_folder);
    NewFile made(m_folder, address.name, address.version);
    STGIndex::rename(m_folder, m_name, m_version, address.name, address.version);
    // Required: without a limit. After the save, the status must say what happened.
    const LockLimit none(std::nullopt);
    std::string left;
    if (STGIndex::exists(m_folder, m_name, m_version, left)) throw Refusal{VU_FAILED, {}, {}};
    check_stored(address, before);
    made.keep();
    m_is_there = false;
    Call::current().note_change();
  }

 private:
  std::string m_folder;
  std::string m_name;
  long m_version;
  Place m_place;
  bool m_is_there = true;
};

void store_in_place(const Address& address, const Source& source) {
  NewVersion version(address);
  vu_file file;
  open_to_write(file, version, true);
  if (!file.is_open()) throw Refusal{VU_FAILED, {}, {}};
  const std::string path = file.getFilePath();
  const bool is_locked = file.is_locked();
  bool is_whole = is_locked && is_opened_anew(address, file);
  const unsigned failures_before = Call::current().failures();
  if (source.path.empty()) is_whole = is_whole && write_from(file, source.view());
  file.close();
  if (!is_locked) throw Refusal{VU_FAILED, "the lock was not granted", told_path(path)};
  if (!is_whole || Call::current().failures() != failures_before)
    throw Refusal{VU_FAILED, {}, told_path(path)};
  if (!source.path.empty()) copy_over(source.path, path, os::IfExists::kReplace);
  version.keep();
  Call::current().note_change();
}

vu_status store(const Address& address, const Source& source, std::uint32_t flags,
                std::int32_t* how) {
  Place place;
  if (!source.path.empty() && !is_there(source.path))
    throw Refusal{VU_NOTHING_MATCHED, "there is no such file", told_path(source.path)};
  const bool existed = find(address, place);
  if (existed && (flags & VU_REPLACE) == 0)
    throw Refusal{VU_ALREADY, "the version exists; set VU_REPLACE to replace it",
                  told_path(place.path())};
  std::string folder;
  bool in_place = (flags & VU_IN_PLACE) != 0;
  if (!in_place) {
    if (!find_folder(address, true, folder)) throw Refusal{VU_FAILED, {}, {}};
    // Reads of this name return a file with exactly this name, whatever the index contains.
    in_place = is_there(folder + "\\" + address.name);
  }
  if (in_place) {
    store_in_place(address, source);
  } else {
    Staged staged(folder, address);
    fill(source, staged.place());
    staged.rename_to(address, existed ? place.file : std::string());
  }
  if (how != nullptr) *how = in_place ? VU_STORED_IN_PLACE : VU_STORED_AT_ONCE;
  return existed && !in_place ? without_derived(address, place) : done_unless_told();
}

vu_status rename(const Store& settings, const vu_document* from, const vu_document* to,
                 std::uint32_t flags) {
  require((flags & ~std::uint32_t{VU_REPLACE}) == 0, "unknown flags");
  Address old_address = address_of(settings, from, Version::kAny);
  const Address address = address_of(settings, to, Version::kNamed);
  const Place old = place_of(old_address);
  old_address.version = old.version;
  Place place;
  const bool existed = find(address, place);
  if (existed && place.path() == old.path()) return VU_DONE;
  if (existed && (flags & VU_REPLACE) == 0)
    throw Refusal{VU_ALREADY, "the version exists; set VU_REPLACE to replace it",
                  told_path(place.path())};
  std::string folder;
  if (!find_folder(address, true, folder)) throw Refusal{VU_FAILED, {}, {}};
  if (folder != old.folder) {
    wait_for_index(old.folder);
    vu_status stored = VU_DONE;
    std::optional<Refusal> left;
    try {
      stored = store(address, {nullptr, 0, old.path()}, flags, nullptr);
    } catch (const Refusal& refusal) {
      if (refusal.status != VU_PARTLY_DONE) throw;
      left = refusal;
    }
    Call::current().note_change();
    vu_storage::RemoveFile(old_address.owner, old_address.name, old_address.type,
                           old_address.version);
    if (!is_removed(old_address, old))
      throw Refusal{
          VU_PARTLY_DONE, "the version has its new name, but the old one cannot be removed", {}};
    if (left) throw *left;
    return LockLimit::passed() ? status_of_removal() : stored;
  }
  wait_for_index(folder);
  {
    NewFile made(folder, address.name, address.version);
    STGIndex::rename(folder, old_address.name, old_address.version, address.name, address.version);
    // Required: without a limit. After the save, the status must say what happened.
    const LockLimit none(std::nullopt);
    Place now;
    if (!find(address, now) || find(old_address, now))
      return failed_or(VU_FAILED, "the version cannot be renamed", told_path(old.path()));
    made.keep();
  }
  Call::current().note_change();
  return existed ? without_derived(address, place) : done_unless_told();
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
    return api::rename(*use, from, to, flags);
  });
}
