#include "api/lists.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "index/index_gate.h"
#include "platform/os/os.h"
#include "vu_storage.h"

// Lists by callbacks. No lock is held during a callback; documents are not copied into a list.

namespace api {
namespace {

bool is_folder(const std::string& folder, const os::Entry& entry) {
  if (entry.kind != os::EntryKind::kUnknown) return entry.kind == os::EntryKind::kFolder;
  os::FileStat found;
  const std::string path = folder + std::string(entry.name);
  return os::stat(path, found).ok() && found.is_directory;
}

std::vector<std::string> subfolders_of(const std::string& folder) {
  std::vector<std::string> names;
  if (!is_there(folder)) return names;
  os::Listing entries;
  const std::string listed = folder + "\\";
  const os::Status status = os::list(listed, entries);
  if (!status.ok())
    throw Refusal{VU_FAILED, "the folder cannot be listed", told_path(folder), status.code()};
  for (const os::Entry entry : entries) {
    if (is_folder(listed, entry)) names.emplace_back(entry.name);
  }
  return names;
}

bool is_bucket_name(std::string_view name) {
  return name.size() >= 8 && name.find_first_not_of("0123456789") == std::string_view::npos;
}

/// Passes the entries of one owner to the callback. Errors: tell() lets out what go_on() throws.
struct Listing {
  std::int32_t area;
  std::string owner;
  std::uint32_t flags;
  vu_entry_visitor visit;
  void* context;
  std::string name = {};
  std::string told_file = {};

  bool tell(const std::string& folder, std::string_view logical, long version,
            const std::string& file) {
    if (logical.starts_with(kStagedPrefix)) return true;
    vu_info info = VU_INFO_INIT;
    info.version = version;
    if ((flags & VU_WITH_INFO) != 0)
      static_cast<void>(describe_file(folder + "\\" + file, version, info));
    const vu_entry entry = {
        sizeof(vu_entry),           area, 0, owner.c_str(), told_name(logical, name),
        told_name(file, told_file), info};
    go_on([&] { return visit(context, &entry); });
    return true;
  }
};

vu_status each_document(const Store& store, std::int32_t area, const char* owner,
                        std::uint32_t flags, vu_entry_visitor visit, void* context) {
  require_callback(visit);
  require((flags & ~std::uint32_t{VU_WITH_INFO}) == 0, "unknown flags");
  const STG::RepositoryType type = type_of(area);
  const std::string own = owner_of(store, owner);
  Listing listing = {area, told_owner(store, own), flags, visit, context};
  vu_status status = VU_DONE;
  for (const std::string& folder : folders_of(store, type, own)) {
    const auto tell = [&](std::string_view name, long version, const std::string& file) {
      return listing.tell(folder, name, version, file);
    };
    status = std::max(status, visit_entries(folder, tell));
  }
  return status;
}

vu_status each_version(const Store& store, const vu_document* document, std::uint32_t flags,
                       vu_entry_visitor visit, void* context) {
  require_callback(visit);
  require((flags & ~std::uint32_t{VU_WITH_INFO}) == 0, "unknown flags");
  const Address address = address_of(store, document, Version::kNoneIs0);
  std::string folder;
  if (!find_folder(address, false, folder)) return VU_DONE;
  Listing listing = {document->area, told_owner(store, address.owner), flags, visit, context};
  return visit_entries(folder, [&](std::string_view name, long version, const std::string& file) {
    return name != address.name || listing.tell(folder, name, version, file);
  });
}

vu_status each_owner(const Store& store, std::int32_t area, vu_name_visitor visit, void* context) {
  require_callback(visit);
  const STG::RepositoryType type = type_of(area);
  if (!store.owners_have_folders) return VU_DONE;
  for (const std::string& owner : owners_in(store, type)) {
    const std::string name = told_owner(store, owner);
    if (!name.empty()) go_on([&] { return visit(context, name.c_str()); });
  }
  return VU_DONE;
}

}  // namespace

vu_status visit_entries(const std::string& folder, const IndexGate::Visit& visit) {
  const os::Status listed = IndexGate::visit(folder, visit);
  if (listed.ok()) return VU_DONE;
  Call::current().hear(vu_host::trace_event::warning,
                       "the folder cannot be listed, so its orphans are not adopted");
  Call::current().hear_failure(folder, listed.code());
  return VU_PARTLY_DONE;
}

std::vector<std::string> owners_in(const Store& store, STG::RepositoryType type) {
  if (!store.owners_have_folders) return {"_"};
  return subfolders_of(area_folder(type));
}

std::vector<std::string> folders_of(const Store& store, STG::RepositoryType type,
                                    const std::string& owner) {
  std::string folder = area_folder(type);
  if (store.owners_have_folders) folder += "\\" + owner;
  if (!is_there(folder)) return {};
  if (type != STG::CorporateRepository) return {folder};
  std::vector<std::string> buckets;
  for (const std::string& name : subfolders_of(folder)) {
    if (is_bucket_name(name)) buckets.push_back(folder + "\\" + name);
  }
  std::sort(buckets.begin(), buckets.end());
  return buckets;
}

std::string told_owner(const Store& store, const std::string& owner) {
  return store.owners_have_folders ? os::utf8_of(owner) : std::string();
}

}  // namespace api

using api::run;
using api::StoreUse;

vu_status vu_each_document(vu_store* store, int32_t area, const char* owner, uint32_t flags,
                           vu_entry_visitor visit, void* context) {
  return run("vu_each_document", [&]() -> vu_status {
    const StoreUse use(store);
    return api::each_document(*use, area, owner, flags, visit, context);
  });
}

vu_status vu_each_version(vu_store* store, const vu_document* document, uint32_t flags,
                          vu_entry_visitor visit, void* context) {
  return run("vu_each_version", [&]() -> vu_status {
    const StoreUse use(store);
    return api::each_version(*use, document, flags, visit, context);
  });
}

vu_status vu_each_owner(vu_store* store, int32_t area, vu_name_visitor visit, void* context) {
  return run("vu_each_owner", [&]() -> vu_status {
    const StoreUse use(store);
    return api::each_owner(*use, area, visit, context);
  });
}
