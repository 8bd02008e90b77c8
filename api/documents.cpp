#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "api/store.h"
#include "file/handle_core.h"
#include "file/lock_limit.h"
#include "stg_index.h"
#include "vu_storage.h"

// Checking, describing, reading and removing documents.

namespace api {
namespace {

/// Opens a version with its lock. @throws Refusal, vu_file_except
void open_to_read(const Address& address, vu_file& file) {
  at_place_of(address, [&](const Place& place) {
    file.open(place.folder, place.file, vu_file_base::o_read);
    if (!file.is_locked())
      throw Refusal{VU_FAILED, "the lock was not granted", told_path(place.path())};
  });
}

vu_status read_into(const Store& store, const vu_document* document, void* buffer, std::size_t room,
                    std::size_t* size) {
  require(buffer != nullptr || room == 0, "buffer is null");
  require(size, "size");
  vu_file file;
  open_to_read(address_of(store, document, Version::kAny), file);
  const auto there = static_cast<std::size_t>(size_of(file));
  if (buffer != nullptr && room >= there) {
    // The lock keeps writers out: the size is still right.
    *size = read_into(file, buffer, there);
    return VU_DONE;
  }
  *size = there;
  if (buffer == nullptr) return VU_DONE;
  throw Refusal{VU_TOO_SHORT, "the buffer is too short; size receives the required size", {}};
}

vu_status read_whole(const Store& store, const vu_document* document, void** bytes,
                     std::size_t* size) {
  require(size, "size");
  vu_file file;
  open_to_read(address_of(store, document, Version::kAny), file);
  const FileText text = read_to_end(file);
  auto* const copy = static_cast<char*>(std::malloc(text.size + 1));
  if (copy == nullptr) throw std::bad_alloc();
  if (text.size != 0) std::memcpy(copy, text.bytes.get(), text.size);
  copy[text.size] = '\0';
  *bytes = copy;
  *size = text.size;
  return VU_DONE;
}

vu_status describe(const Address& address, vu_info& info) {
  return at_place_of(address, [&](const Place& place) {
    vu_info found;
    if (const os::Status asked = describe_file(place.path(), place.version, found); !asked.ok())
      throw Refusal{VU_FAILED, "the system cannot tell the size and times of the file",
                    told_path(place.path()), asked.code()};
    found.struct_size = info.struct_size;
    info = found;
    return VU_DONE;
  });
}

vu_status remove(const Address& given) {
  Address address = given;
  const Place place = place_of(address);
  address.version = place.version;
  wait_for_index(place.folder);
  refuse_if_hidden(address, place);
  vu_storage::RemoveFile(address.owner, address.name, address.type, address.version);
  if (!is_removed(address, place))
    return failed_or(VU_FAILED, "the file cannot be removed; the version stays",
                     told_path(place.path()));
  return status_of_removal();
}

}  // namespace
}  // namespace api

using api::run;
using api::StoreUse;
using api::Version;

vu_status vu_exists(vu_store* store, const vu_document* document) {
  return run("vu_exists", [&]() -> vu_status {
    const StoreUse use(store);
    const api::Address address = api::address_of(*use, document, Version::kAny);
    if (address.version < 0) {
      static_cast<void>(api::place_of(address));
      return VU_DONE;
    }
    vu_storage facade;
    if (facade.IsFileExist(address.owner, address.name, address.type, address.version, nullptr,
                           nullptr))
      return VU_DONE;
    static_cast<void>(api::place_of(address));
    return VU_DONE;
  });
}

vu_status vu_describe(vu_store* store, const vu_document* document, vu_info* info) {
  return run("vu_describe", [&]() -> vu_status {
    api::require(info, "info");
    api::check_size(info, info->struct_size, sizeof *info);
    const StoreUse use(store);
    return api::describe(api::address_of(*use, document, Version::kAny), *info);
  });
}

vu_status vu_file_path(vu_store* store, const vu_document* document, char* buffer, size_t room,
                       size_t* size) {
  return run("vu_file_path", [&]() -> vu_status {
    const StoreUse use(store);
    const api::Place place = api::place_of(api::address_of(*use, document, Version::kAny));
    return api::give_text(api::told_path(place.path()), buffer, room, size);
  });
}

vu_status vu_read(vu_store* store, const vu_document* document, void* buffer, size_t room,
                  size_t* size) {
  return run("vu_read", [&]() -> vu_status {
    const StoreUse use(store);
    return api::read_into(*use, document, buffer, room, size);
  });
}

vu_status vu_read_whole(vu_store* store, const vu_document* document, void** bytes, size_t* size) {
  return run("vu_read_whole", [&]() -> vu_status {
    api::clear_result(bytes, "bytes");
    const StoreUse use(store);
    return api::read_whole(*use, document, bytes, size);
  });
}

vu_status vu_remove(vu_store* store, const vu_document* document) {
  return run("vu_remove", [&]() -> vu_status {
    const StoreUse use(store);
    return api::remove(api::address_of(*use, document, Version::kAny));
  });
}

vu_status vu_latest(vu_store* store, const vu_document* document, int64_t* version) {
  return run("vu_latest", [&]() -> vu_status {
    api::require(version, "version");
    const StoreUse use(store);
    api::Address address = api::address_of(*use, document, Version::kNoneIs0);
    address.version = -1;
    *version = api::place_of(address).version;
    return VU_DONE;
  });
}
