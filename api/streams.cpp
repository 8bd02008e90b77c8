#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "api/in_place.h"
#include "api/store.h"
#include "file/handle_core.h"
#include "file/lock_limit.h"
#include "platform/os/os.h"
#include "storage/roots.h"
#include "vu_file_except.h"
#include "vu_storage.h"

// Streams: open files of the storage.

namespace api {
namespace {

Stream& stream_of(const Use& use) {
  check_found(use.found());
  return static_cast<Stream&>(use.object());
}

}  // namespace

void give_stream(std::unique_ptr<Stream> opened, vu_stream** stream) {
  check_locked(opened->file);
  *stream = static_cast<vu_stream*>(handles::add(Kind::kStream, std::move(opened)));
  // A lock that was refused before does not matter any more, and the caller must close the stream.
  Call::current().note_change();
}

namespace {

void open_exact(Stream& stream, const Address& address) {
  at_place_of(address, [&](const Place& place) {
    stream.file.open(place.folder, place.file, vu_file_base::o_read);
  });
}

/// Whether the version decides what is served, and not the time of its file.
bool is_exact(const Address& address) {
  return address.is_corporate() && vu_file::getExtension(address.name) == "kdf";
}

/// Whether the file that could not be opened exists. If it does, the system refused to open it.
bool is_refused_file_there() {
  const std::string& path = Call::current().failed_path();
  return !path.empty() && vu_file::exists(path);
}

/// Throws the reason why OpenRead() served nothing. Returns if another try can help: if another
/// program has replaced the version.
void check_served(const Address& address) {
  const Call& call = Call::current();
  if (call.heard_failure()) {
    // Only the file of a version that was replaced can be opened by another try.
    const std::string& path = call.failed_path();
    if (LockLimit::passed() || path.empty() || is_there(path)) throw Refusal{VU_FAILED, {}, {}};
    return;
  }
  const bool is_as_named = is_exact(address);
  Address served = address;
  if (!is_as_named) served.version = 0;
  const Place place = place_of(served);
  vu_info info;
  const os::Status described = describe_file(place.path(), served.version, info);
  const bool is_missing = described.failure() == os::Failure::kNotFound;
  // A second answer tells a link without a target from a file that was replaced in between.
  if (is_missing &&
      (!is_there(place.path()) || describe_file(place.path(), served.version, info).ok()))
    return;
  if (!described.ok() && !is_missing)
    throw Refusal{VU_FAILED, "the system cannot tell the time of the file", told_path(place.path()),
                  described.code()};
  // The file of a link without a target has no time.
  const auto time = is_missing ? 0 : static_cast<std::int32_t>(info.modified);
  // OpenRead() takes the time 0 as unknown, and never serves such a file.
  const bool is_too_old = address.is_corporate() && !is_as_named && time < address.version;
  if (time == 0 || is_too_old)
    throw Refusal{VU_OUTDATED, "the document is older than requested", told_path(place.path())};
}

void open_served(Stream& stream, const Address& address) {
  constexpr int kMost = 1000;
  for (int tries = 0; tries < kMost; ++tries) {
    vu_storage facade;
    facade.OpenRead(stream.file, address.owner, address.name, address.type, address.version);
    if (stream.file.is_open()) return;
    check_served(address);
    Call::current().forget();
  }
  throw Refusal{VU_FAILED, "other programs replace the version again and again; call again", {}};
}

void open_for_writing(Stream& stream, const Address& address, bool replaces) {
  stream.direction = Direction::kWrites;
  open_to_write(stream.file, address, replaces);
  if (stream.file.is_open() && is_opened_anew(address, stream.file)) return;
  if (Call::current().heard_failure()) throw Refusal{VU_FAILED, {}, {}};
  throw Refusal{VU_ALREADY, "the version exists; open it with VU_WRITE_OVER to replace it", {}};
}

vu_status open_document(const Store& store, const vu_document* document, std::int32_t mode,
                        vu_stream** stream) {
  require(mode >= VU_READ_EXACT && mode <= VU_WRITE_OVER, "there is no such mode");
  const Address address =
      address_of(store, document, mode == VU_READ_EXACT ? Version::kAny : Version::kNamed);
  auto opened = std::make_unique<Stream>();
  if (mode == VU_READ_EXACT) open_exact(*opened, address);
  if (mode == VU_READ_SERVED) open_served(*opened, address);
  if (mode == VU_WRITE_NEW || mode == VU_WRITE_OVER)
    open_for_writing(*opened, address, mode == VU_WRITE_OVER);
  give_stream(std::move(opened), stream);
  return VU_DONE;
}

constexpr const char* kNoPart = "the part is missing or too old; generate it and write it";

/// Copies a newer preload copy over a part. Required: into the file of the part. A writer that
/// waits for the lock of the part would otherwise write a file without a name.
/// @throws Refusal if the system refuses that
void refresh(const std::string& preload, const std::string& part) {
  const os::Status copied =
      os::copy(preload, part, os::IfExists::kReplace, nullptr, os::Flushed::kYes);
  if (!copied.ok())
    throw Refusal{VU_FAILED, "the newer preload copy cannot replace the part", told_path(part),
                  copied.code()};
  // A part that is read-only like its preload copy could never be refreshed again.
  static_cast<void>(os::make_writable(part));
}

/// Opens a part as OpenReadSubPart() does, but flushes the copy of a preload copy.
/// @throws Refusal, vu_file_except
void open_part_to_read(vu_file& file, const Address& address, const std::string& rendition,
                       const std::string& part) {
  vu_storage facade;
  std::string folder;
  std::string preload_folder;
  const int way = StorageGate::update_way(facade, address.owner, address.name, rendition, part,
                                          address.version, folder, preload_folder);
  if (way == kForceRetrieve)
    throw Refusal{VU_FAILED, "the system cannot tell the time of the document", {}};
  // Without the time of a file, an old part counts as up to date.
  if (Call::current().heard_failure()) throw Refusal{VU_FAILED, {}, {}};
  if (way == kFromPreload) refresh(preload_folder + "\\" + part, folder + "\\" + part);
  if (way == kUpToDate || way == kFromPreload) {
    try {
      file.open(folder, part, vu_file_base::o_read);
      return;
    } catch (const vu_file_except&) {
      if (LockLimit::passed() || is_refused_file_there()) throw;
    }
  }
  if (Call::current().heard_failure()) throw Refusal{VU_FAILED, {}, {}};
  throw Refusal{VU_OUTDATED, kNoPart, {}};
}

vu_status open_part(const Store& store, const vu_document* document, const char* rendition,
                    const char* part, std::int32_t mode, vu_stream** stream) {
  require(mode == VU_READ_SERVED || mode == VU_WRITE_OVER, "there is no such mode for a part");
  const Address address = address_of(store, document, Version::kNamed);
  require(address.is_corporate(), "only documents of VU_AREA_DOCS have parts");
  const std::string type = rendition_of(store, rendition);
  const std::string id = file_name_of(store, "the part", part);
  static_cast<void>(place_of(address));
  auto opened = std::make_unique<Stream>();
  if (mode == VU_READ_SERVED) {
    open_part_to_read(opened->file, address, type, id);
  } else {
    opened->direction = Direction::kWrites;
    vu_storage facade;
    facade.OpenWriteSubPart(opened->file, address.owner, address.name, type, id, address.version);
    if (!opened->file.is_open()) {
      if (Call::current().heard_failure() || is_refused_file_there())
        throw Refusal{VU_FAILED, {}, {}};
      throw Refusal{VU_OUTDATED, kNoPart, {}};
    }
    // A cut that the system refuses is only traced. The end of the old part would stay.
    if (Call::current().heard_failure() && opened->file.is_locked() && size_of(opened->file) != 0)
      throw Refusal{VU_FAILED, {}, {}};
  }
  give_stream(std::move(opened), stream);
  return VU_DONE;
}

}  // namespace
}  // namespace api

using api::run;
using api::StoreUse;

vu_status vu_open(vu_store* store, const vu_document* document, int32_t mode, vu_stream** stream) {
  return run("vu_open", [&]() -> vu_status {
    api::clear_result(stream, "stream");
    return api::open_document(*StoreUse(store), document, mode, stream);
  });
}

vu_status vu_open_part(vu_store* store, const vu_document* document, const char* rendition,
                       const char* part, int32_t mode, vu_stream** stream) {
  return run("vu_open_part", [&]() -> vu_status {
    api::clear_result(stream, "stream");
    return api::open_part(*StoreUse(store), document, rendition, part, mode, stream);
  });
}

vu_status vu_stream_read(vu_stream* stream, void* buffer, size_t room, size_t* size) {
  return run("vu_stream_read", [&]() -> vu_status {
    api::require(size, "size");
    const api::Use use(stream, api::Kind::kStream, api::Sharing::kExclusive);
    api::Stream& opened = api::stream_of(use);
    api::require(opened.direction == api::Direction::kReads, "the stream was opened for writing");
    api::require(buffer != nullptr || room == 0, "buffer is null");
    *size = read_into(opened.file, buffer, room);
    return VU_DONE;
  });
}

vu_status vu_stream_write(vu_stream* stream, const void* bytes, size_t size) {
  return run("vu_stream_write", [&]() -> vu_status {
    const api::Use use(stream, api::Kind::kStream, api::Sharing::kExclusive);
    api::Stream& opened = api::stream_of(use);
    api::require(opened.direction == api::Direction::kWrites, "the stream was opened for reading");
    api::require(bytes != nullptr || size == 0, "bytes is null");
    const std::string_view all(static_cast<const char*>(bytes), size);
    if (write_from(opened.file, all)) return VU_DONE;
    return api::failed_or(VU_FAILED, "not all bytes were written");
  });
}

vu_status vu_stream_seek(vu_stream* stream, int64_t distance, int32_t origin) {
  return run("vu_stream_seek", [&]() -> vu_status {
    const api::Use use(stream, api::Kind::kStream, api::Sharing::kExclusive);
    api::Stream& opened = api::stream_of(use);
    api::require(origin >= VU_FROM_START && origin <= VU_FROM_END, "there is no such origin");
    api::require(distance >= std::numeric_limits<std::int32_t>::min() &&
                     distance <= std::numeric_limits<std::int32_t>::max(),
                 "the distance is out of range");
    opened.file.seek(static_cast<int>(distance), static_cast<short>(origin));
    return VU_DONE;
  });
}

vu_status vu_stream_size(vu_stream* stream, int64_t* size) {
  return run("vu_stream_size", [&]() -> vu_status {
    api::require(size, "size");
    const api::Use use(stream, api::Kind::kStream, api::Sharing::kExclusive);
    *size = size_of(api::stream_of(use).file);
    return VU_DONE;
  });
}

vu_status vu_stream_close(vu_stream* stream) {
  return run("vu_stream_close", [&](const api::Call& call) -> vu_status {
    std::unique_ptr<api::Object> object;
    api::check_found(api::handles::take_out(stream, api::Kind::kStream, object));
    static_cast<api::Stream&>(*object).file.close();
    return call.heard_failure() ? VU_FAILED : VU_DONE;
  });
}
