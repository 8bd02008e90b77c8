#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "api/lists.h"
#include "api/store.h"
#include "index/index_gate.h"
#include "index/read_list.h"
#include "platform/os/os.h"
#include "stg_index.h"
#include "vu_storage.h"

// Owners, cleaning and the migration.

namespace api {
namespace {

std::array<std::string, 3> folders_of(const std::string& owner) {
  return {vu_storage::getMailPath() + "\\" + owner, vu_storage::getListPath() + "\\" + owner,
          vu_storage::getUserPath() + "\\" + owner};
}

std::array<bool, 3> presence_of(const std::array<std::string, 3>& folders) {
  std::array<bool, 3> result{};
  std::transform(folders.begin(), folders.end(), result.begin(), is_there);
  return result;
}
constexpr std::array<bool, 3> kNone{};

bool any_exists(const std::array<std::string, 3>& folders) { return presence_of(folders) != kNone; }

std::string named_owner(const Store& store, const char* owner) {
  require(owner, "the owner");
  require(store.owners_have_folders, "owners share folders in this storage");
  return owner_of(store, owner);
}

vu_status rename_owner(const Store& store, const char* from, const char* to) {
  const std::string old_name = named_owner(store, from);
  const std::string new_name = named_owner(store, to);
  const std::array<bool, 3> before = presence_of(folders_of(old_name));
  if (before == kNone) throw Refusal{VU_NOTHING_MATCHED, "the owner has no folders", {}};
  if (any_exists(folders_of(new_name)))
    throw Refusal{VU_ALREADY, "the new name already has folders", {}};
  if (!vu_storage::RenameUserStorage(old_name, new_name))
    return failed_or(VU_FAILED, "the owner's folders cannot be renamed");
  const std::array<bool, 3> after = presence_of(folders_of(new_name));
  if (after == before && !any_exists(folders_of(old_name))) return VU_DONE;
  throw Refusal{after != kNone ? VU_PARTLY_DONE : VU_FAILED,
                "not all folders of the owner could be renamed",
                {}};
}

vu_status remove_owner(const Store& store, const char* owner) {
  const std::string name = named_owner(store, owner);
  if (!any_exists(folders_of(name)))
    throw Refusal{VU_NOTHING_MATCHED, "the owner has no folders", {}};
  vu_storage::RemoveUserStorage(vu_utf8string(name));
  if (any_exists(folders_of(name)))
    throw Refusal{VU_PARTLY_DONE, "not all files of the owner could be removed", {}};
  return VU_DONE;
}

/// The arguments of vu_clean(), and its decision about one version.
struct Cleaning {
  std::int32_t area;
  std::int64_t older_than;
  std::uint32_t flags;
  vu_entry_visitor visit;
  void* context;
  std::int64_t now;

  bool takes_all() const { return older_than == 0; }
  /// Decides as cleanOutOfDateOutput(): a missing file has the time 0, a time in the future is new,
  /// and a file stays if the system cannot tell its time.
  bool is_old(const std::string& path, const os::Status& described, const vu_info& info) const {
    if (takes_all()) return true;
    const bool is_missing = described.failure() == os::Failure::kNotFound;
    if (!described.ok() && !is_missing) {
      Call::current().hear(vu_host::trace_event::warning,
                           "the system cannot tell the time of the file, so it stays");
      Call::current().hear_failure(path, described.code());
      return false;
    }
    const std::int64_t time = (flags & VU_BY_ACCESS) != 0 ? info.accessed : info.modified;
    return now - (is_missing ? 0 : time) > older_than;
  }
  /// Passes the versions that are too old to the callback. @return their number.
  std::int64_t forecast(const std::string& owner, const std::string& folder) const {
    std::int64_t count = 0;
    const auto judge = [&](std::string_view logical, long version, const std::string& file) {
      const std::string path = folder + "\\" + file;
      vu_info info;
      const os::Status described = describe_file(path, version, info);
      if (!is_old(path, described, info)) return true;
      ++count;
      if (visit == nullptr) return true;
      const std::string name = told_name(logical);
      const std::string told_file = told_name(file);
      const vu_entry entry = {sizeof(vu_entry),  area, 0, owner.c_str(), name.c_str(),
                              told_file.c_str(), info};
      go_on([&] { return visit(context, &entry); });
      return true;
    };
    // A folder that cannot be listed was heard of.
    static_cast<void>(visit_entries(folder, judge));
    return count;
  }
  std::int64_t clean(const std::string& folder) const {
    // The operation uses the folder in both encodings.
    if (os::utf8_of(folder) != folder)
      throw Refusal{
          VU_NO_NAME,
          "the path of the folder is different in UTF-8 and in the code page of the process",
          told_path(folder)};
    wait_for_index(folder);
    STGIndex::AgeMap kept;
    return static_cast<std::int64_t>(STGIndex::cleanOutOfDateOutput(
        folder, static_cast<unsigned long>(older_than), kept, (flags & VU_BY_ACCESS) != 0));
  }
};

constexpr std::uint32_t kCleanFlags = VU_DRY_RUN | VU_BY_ACCESS | VU_CLEAN_ALL;

vu_status clean(const Store& store, const Cleaning& cleaning, const char* owner,
                std::int64_t* count) {
  require((cleaning.flags & ~kCleanFlags) == 0, "unknown flags");
  require(cleaning.older_than >= 0 && cleaning.older_than <= 4294967295, "the age is out of range");
  if (cleaning.takes_all() && (cleaning.flags & VU_CLEAN_ALL) == 0)
    throw Refusal{VU_REFUSED, "an age of 0 removes everything; set VU_CLEAN_ALL to allow it", {}};
  const STG::RepositoryType type = type_of(cleaning.area);
  const std::vector<std::string> owners =
      owner != nullptr ? std::vector<std::string>{owner_of(store, owner)} : owners_in(store, type);
  const bool is_dry = (cleaning.flags & VU_DRY_RUN) != 0;
  std::int64_t done = 0;
  if (count != nullptr) *count = 0;
  for (const std::string& own : owners) {
    for (const std::string& folder : folders_of(store, type, own)) {
      const bool is_told = is_dry || cleaning.visit != nullptr;
      const std::int64_t found = is_told ? cleaning.forecast(told_owner(store, own), folder) : 0;
      done += is_dry ? found : cleaning.clean(folder);
      // Set here, so that it is right also if the call ends early.
      if (count != nullptr) *count = done;
    }
  }
  return done_unless_told();
}

vu_status migrate(const Store& store, const char* owner) {
  const std::string name = owner_of(store, owner);
  const std::string folder =
      vu_storage::getMailPath() + (store.owners_have_folders ? "\\" + name : std::string());
  require(store.owners_have_folders, "owners share folders in this storage");
  if (!is_there(folder))
    throw Refusal{VU_NOTHING_MATCHED, "the owner has no mail folder", told_path(folder)};
  // Without adoption the migration would skip every file and still mark the folder as migrated.
  if (!IndexGate::adopts())
    throw Refusal{
        VU_REFUSED, "the migration needs adoption; open the storage without VU_NO_ADOPTION", {}};
  wait_for_index(folder);
  const KeepsListLock kept;
  STGIndex::migrateInboxRead(name);
  return done_unless_told();
}

}  // namespace
}  // namespace api

using api::run;
using api::StoreUse;

vu_status vu_rename_owner(vu_store* store, const char* from, const char* to) {
  return run("vu_rename_owner", [&]() -> vu_status {
    const StoreUse use(store);
    return api::rename_owner(*use, from, to);
  });
}

vu_status vu_remove_owner(vu_store* store, const char* owner) {
  return run("vu_remove_owner", [&]() -> vu_status {
    const StoreUse use(store);
    return api::remove_owner(*use, owner);
  });
}

vu_status vu_clean(vu_store* store, int32_t area, const char* owner, int64_t older_than,
                   uint32_t flags, vu_entry_visitor visit, void* context, int64_t* count) {
  return run("vu_clean", [&]() -> vu_status {
    const StoreUse use(store);
    return api::clean(*use, {area, older_than, flags, visit, context, os::now()}, owner, count);
  });
}

vu_status vu_migrate_inbox(vu_store* store, const char* owner) {
  return run("vu_migrate_inbox", [&]() -> vu_status {
    const StoreUse use(store);
    return api::migrate(*use, owner);
  });
}
