// Names and bytes of any kind through the C interface with its guard on: a status comes back, a
// handle that was given is one, and a document that no call names keeps its bytes.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "lab/fuzz/target.h"
#include "tests/support/scratch.h"
#include "tests/support/storage_peer.h"
#include "vu/storage.h"

namespace fuzz {
namespace {

constexpr const char* kOwner = "ann";
constexpr const char* kBystander = "bystander.kdb";
constexpr std::string_view kBytes = "bytes of a bystander";

vu_document document(const char* owner, const char* name, std::int32_t area, std::int64_t version) {
  vu_document result = VU_DOCUMENT_INIT;
  result.owner = owner;
  result.name = name;
  result.area = area;
  result.version = version;
  return result;
}

std::int32_t go_on(void* context, const vu_entry* entry) {
  require(entry->name != nullptr && entry->file != nullptr, "an entry has its names");
  return ++*static_cast<int*>(context) > 50 ? 1 : 0;
}
std::int32_t go_on_with_lines(void*, const char*, const char*) { return 0; }

/// A store whose storage holds a document in each area that nobody names.
class Stage {
 public:
  Stage(bool use_domain, bool adopts) : m_storage(m_scratch.path(), use_domain, adopts) {
    const vu_settings settings = VU_SETTINGS_INIT;
    require(vu_open_store(&settings, &m_store) == VU_ALREADY, "the storage in force is joined");
    for (const std::int32_t area : {VU_AREA_USER, VU_AREA_DOCS, VU_AREA_MAIL}) {
      const vu_document bystander = document(kOwner, kBystander, area, 7);
      require(vu_put(m_store, &bystander, kBytes.data(), kBytes.size(), 0, nullptr) == VU_DONE,
              "a bystander is stored");
    }
  }
  ~Stage() { vu_close_store(m_store); }
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;

  vu_store* store() const { return m_store; }
  void check_bystanders() const {
    for (const std::int32_t area : {VU_AREA_USER, VU_AREA_DOCS, VU_AREA_MAIL}) {
      const vu_document bystander = document(kOwner, kBystander, area, 7);
      char bytes[64];
      std::size_t size = 0;
      require(vu_read(m_store, &bystander, bytes, sizeof bytes, &size) == VU_DONE &&
                  std::string_view(bytes, size) == kBytes,
              "a document that no call names stays");
    }
  }

 private:
  scratch_folder m_scratch;
  initialised_storage m_storage;
  vu_store* m_store = nullptr;
};

struct Request {
  vu_document document;
  vu_document other;
  std::string text;
  std::uint32_t flags;
};

vu_status use_stream(vu_store* store, const Request& request, std::int32_t mode) {
  vu_stream* stream = nullptr;
  const vu_status status = vu_open(store, &request.document, mode, &stream);
  require((status == VU_DONE) == (stream != nullptr), "a handle comes with a success alone");
  if (stream == nullptr) return status;
  if (mode == VU_WRITE_NEW || mode == VU_WRITE_OVER)
    vu_stream_write(stream, request.text.data(), request.text.size());
  vu_stream_seek(stream, -3, VU_FROM_POSITION);
  require(vu_stream_close(stream) == VU_DONE, "an open stream can be closed");
  require(vu_stream_close(stream) == VU_BAD_HANDLE, "a closed stream is recognised");
  return status;
}

vu_status whole(vu_store* store, const Request& request) {
  void* bytes = nullptr;
  std::size_t size = 0;
  const vu_status status = vu_read_whole(store, &request.document, &bytes, &size);
  require((status == VU_DONE) == (bytes != nullptr), "memory comes with a success alone");
  vu_free(bytes);
  return status;
}

vu_status one_call(vu_store* store, unsigned char what, const Request& request) {
  const vu_document* const named = &request.document;
  const char* const text = request.text.c_str();
  char buffer[100];
  int count = 0;
  switch (what % 16) {
    case 0:
      return vu_put(store, named, text, request.text.size(), request.flags, nullptr);
    case 1:
      return whole(store, request);
    case 2:
      return vu_remove(store, named);
    case 3:
      return vu_rename(store, named, &request.other, request.flags & VU_REPLACE);
    case 4:
      return use_stream(store, request, VU_READ_EXACT + request.flags % 4);
    case 5:
      return vu_exists(store, named);
    case 6:
      return vu_file_path(store, named, buffer, sizeof buffer, nullptr);
    case 7:
      return vu_each_document(store, named->area, named->owner, VU_WITH_INFO, go_on, &count);
    case 8:
      return vu_each_version(store, named, 0, go_on, &count);
    case 9:
      return vu_key_set(store, named, request.other.name, text);
    case 10:
      return vu_key_get(store, named, text, buffer, sizeof buffer, nullptr);
    case 11:
      return vu_key_delete(store, named, request.other.name);
    case 12:
      return vu_key_each(store, named, go_on_with_lines, nullptr);
    case 13:
      return vu_profile_set(store, named->owner, named->name, request.other.name, text);
    case 14: {
      vu_stream* stream = nullptr;
      const std::int32_t mode = request.flags % 2 != 0 ? VU_READ_SERVED : VU_WRITE_OVER;
      const vu_status status = vu_open_part(store, named, request.other.name, text, mode, &stream);
      if (stream != nullptr) vu_stream_close(stream);
      return status;
    }
    default:
      return vu_clean(store, named->area, kOwner, 4294967295, VU_DRY_RUN, go_on, &count, nullptr);
  }
}

void c_operations(std::string_view bytes) {
  Source source(bytes);
  const unsigned char first = source.byte();
  const Stage stage((first & 1U) != 0, (first & 2U) != 0);
  for (int i = 0; i < 6 && !source.is_empty(); ++i) {
    const unsigned char what = source.byte();
    const unsigned char how = source.byte();
    const std::string name = source.text();
    const std::string other = source.text();
    const std::string owner = (how & 128U) != 0 ? kOwner : source.text();
    // A call may well change what it names.
    if (std::strcmp(name.c_str(), kBystander) == 0 || std::strcmp(other.c_str(), kBystander) == 0)
      continue;
    const std::int32_t area = 1 + how % 3;
    const Request request = {document(owner.c_str(), name.c_str(), area, how / 4),
                             document(owner.c_str(), other.c_str(), area, how / 8), other,
                             (how >> 4U) & 3U};
    const vu_status status = one_call(stage.store(), what, request);
    require(std::strcmp(vu_status_name(status), "?") != 0, "a status has its name");
    vu_error error = VU_ERROR_INIT;
    vu_last_error(&error);
    require(error.status == status || what % 16 == 4 || what % 16 == 14,
            "the last error is that of the last call");
  }
  stage.check_bystanders();
}

REGISTER_FUZZ_TARGET(c_operations, "c-operations")

}  // namespace
}  // namespace fuzz
