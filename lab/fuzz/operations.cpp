// Operations of the library and of the C interface that the input chooses.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <map>
#include <string>
#include <string_view>

#include "lab/fuzz/target.h"
#include "stg_index.h"
#include "tests/support/scratch.h"
#include "tests/support/storage_peer.h"
#include "vu/storage.h"
#include "vu_file.h"
#include "vu_fileutf8.h"
#include "vu_storage.h"

namespace fuzz {
namespace {

constexpr std::string_view kBystander = "bystander.kdb";
constexpr std::string_view kBytes = "bytes of a bystander";
constexpr long kStamp = 7;
constexpr const char* kOwner = "ann";

/// Whether a name can concern other documents: a pattern, a separator, or a name of the library.
bool may_touch_others(const std::string& name) {
  if (name.empty() || name.find_first_of("*?\\/") != std::string::npos) return true;
  if (name.find('\0') != std::string::npos) return true;
  for (const char* const part : {"bystander", "index", "0000", ".."}) {
    if (name.find(part) != std::string::npos) return true;
  }
  // Names of the folder itself.
  return name.find_first_not_of(". ") == std::string::npos;
}

/// A storage with one document and one key file that the input does not name.
class StorageWithBystanders {
 public:
  StorageWithBystanders(bool use_domain, bool synchronise)
      : m_storage(m_scratch.path(), use_domain, synchronise) {
    vu_storage storage;
    for (const STG::RepositoryType type : {STG::MailRepository, STG::UserFilesRepository}) {
      vu_file file;
      storage.OpenWrite2(file, kOwner, std::string(kBystander), type, true, kStamp);
      storage.Write(file, std::string(kBytes));
      storage.Close(file);
    }
  }

  bool bystanders_are_there() const {
    vu_storage storage;
    for (const STG::RepositoryType type : {STG::MailRepository, STG::UserFilesRepository}) {
      std::string folder;
      std::string physical;
      if (!storage.IsFileExist(kOwner, std::string(kBystander), type, kStamp, &folder, &physical))
        return false;
      if (read_file(folder + "\\" + physical) != kBytes) return false;
    }
    return true;
  }

 private:
  scratch_folder m_scratch;
  initialised_storage m_storage;
};

struct Names {
  std::string owner;
  std::string name;
  std::string other;
  STG::RepositoryType type;
  long stamp;
};

void documents(unsigned char what, const Names& n) {
  vu_storage storage;
  vu_file file;
  std::string out;
  switch (what % 6) {
    case 0:
      storage.OpenWrite2(file, n.owner, n.name, n.type, (what & 64U) != 0, n.stamp);
      storage.Write(file, n.other);
      storage.Close(file);
      break;
    case 1:
      storage.OpenRead(file, n.owner, n.name, n.type, n.stamp);
      storage.Read(file, out, 0);
      storage.Close(file);
      break;
    case 2: vu_storage::RemoveFile(n.owner, n.name, n.type, n.stamp); break;
    case 3:
      storage.OpenWrite(file, vu_utf8string(n.owner), vu_utf8string(n.name), n.type, true, n.stamp);
      storage.Close(file);
      break;
    case 4: vu_storage::getLattestTimestamp(n.owner, n.name, n.type); break;
    default: storage.IsFileExist(n.owner, n.name, n.type, n.stamp, nullptr, &out); break;
  }
}

void keys_and_parts(unsigned char what, const Names& n) {
  vu_storage storage;
  vu_file file;
  STG::NameValueSeq seq;
  switch (what % 5) {
    case 0:
      seq.push_back({n.other, n.name});
      vu_storage::saveUserOrMasterProfile(n.owner, n.name, seq);
      break;
    case 1: vu_storage::loadUserOrMasterProfile(n.owner, n.name, seq); break;
    case 2:
      storage.OpenWriteSubPart(file, n.owner, n.name, n.other, n.other, n.stamp);
      storage.Close(file);
      break;
    case 3:
      storage.OpenReadSubPart(file, n.owner, n.owner, n.name, n.other, n.other, n.stamp);
      storage.Close(file);
      break;
    default: STGIndex::migrateInboxRead(n.owner); break;
  }
}

void index(unsigned char what, const Names& n, const std::string& folder) {
  STGIndex::NameMap map;
  STGIndex::AgeMap kept;
  std::string out;
  long stamp = 0;
  switch (what % 7) {
    case 0: STGIndex::create(folder, n.name, n.stamp); break;
    case 1: STGIndex::exists(folder, n.name, n.stamp, out); break;
    case 2: STGIndex::rename(folder, n.name, n.stamp, n.other, n.stamp + 1); break;
    case 3: STGIndex::lastVersion(folder, n.name, stamp); break;
    case 4: STGIndex::remove(folder, n.name, n.stamp); break;
    case 5: STGIndex::plValues(folder, map); break;
    default: STGIndex::cleanOutOfDateOutput(folder, 4000000000UL, kept, false); break;
  }
}

void files(unsigned char what, const Names& n, const std::string& folder) {
  const std::string path = folder + "\\" + n.name;
  const std::string other = folder + "\\" + n.other;
  const bool wide = (what & 128U) != 0;
  switch (what % 5) {
    case 0: {
      vu_file file(folder, n.name);
      bool locked = false;
      if (file.try_open(vu_file_base::o_append, locked, true)) file.write(n.other);
      break;
    }
    case 1: vu_file::copyFile(path, other, true); break;
    case 2:
      if (wide) {
        vu_fileutf8::rename(vu_utf8string(path), vu_utf8string(other));
      } else {
        vu_file::rename(path, other);
      }
      break;
    case 3:
      if (wide) {
        vu_fileutf8::createDir(vu_utf8string(path));
      } else {
        vu_file::createDir(path);
      }
      break;
    default:
      if (wide) {
        vu_fileutf8::remove(vu_utf8string(path));
      } else {
        vu_file::remove(path);
      }
      break;
  }
}

/// Runs one operation. Exceptions that its header names are not findings.
void operation(Source& source, const std::string& folder, bool& touches_others) {
  static const STG::RepositoryType types[] = {STG::UserRepository, STG::UserFilesRepository,
                                              STG::CorporateRepository, STG::MailRepository};
  const unsigned char what = source.byte();
  const unsigned char how = source.byte();
  Names n;
  n.type = types[how % 4];
  n.stamp = how / 4;
  n.name = source.text();
  n.other = source.text();
  n.owner = (how & 128U) != 0 ? kOwner : source.text();
  // A name outside of the folder of this run.
  for (const std::string* const each : {&n.name, &n.other, &n.owner}) {
    if (each->find("..") != std::string::npos) return;
    touches_others = touches_others || may_touch_others(*each);
  }
  try {
    switch (what % 4) {
      case 0: documents(what / 4, n); break;
      case 1: keys_and_parts(what / 4, n); break;
      case 2: index(what / 4, n, folder); break;
      default: files(what / 4, n, folder); break;
    }
  } catch (const vu_file_except&) {
    // The header names it for a file that cannot be opened.
  } catch (const vu_i18n_except&) {
    // The header names it for invalid UTF-8.
  }
}

void whole_operations(std::string_view bytes) {
  Source source(bytes);
  const unsigned char first = source.byte();
  const StorageWithBystanders storage((first & 1U) != 0, (first & 2U) != 0);
  bool touches_others = false;
  const std::string folder = vu_storage::getUserPath() + ((first & 1U) != 0 ? "\\ann" : "");
  for (int i = 0; i < 6 && !source.is_empty(); ++i) operation(source, folder, touches_others);
  require(touches_others || storage.bystanders_are_there(), "an entry that no name concerns stays");
}

REGISTER_FUZZ_TARGET(whole_operations, "whole-operations")

// ------------------------------------------------------------------------------------------------
// The C interface with any names and bytes, and with its guard on. Each call returns a status. A
// returned handle is valid. A document that no call names keeps its bytes.

vu_document document(const char* owner, const char* name, std::int32_t area, std::int64_t version) {
  vu_document result = VU_DOCUMENT_INIT;
  result.owner = owner;
  result.name = name;
  result.area = area;
  result.version = version;
  return result;
}

std::int32_t go_on(void* context, const vu_entry* entry) {
  require(entry->name != nullptr && entry->file != nullptr, "an entry has names");
  return ++*static_cast<int*>(context) > 50 ? 1 : 0;
}
std::int32_t go_on_with_lines(void*, const char*, const char*) { return 0; }

/// A store with one document in each area that the input does not name.
class StoreWithBystanders {
 public:
  StoreWithBystanders(bool use_domain, bool adopts)
      : m_storage(m_scratch.path(), use_domain, adopts) {
    const vu_settings settings = VU_SETTINGS_INIT;
    require(vu_open_store(&settings, &m_store) == VU_ALREADY, "an initialised storage is reported");
    for (const std::int32_t area : {VU_AREA_USER, VU_AREA_DOCS, VU_AREA_MAIL}) {
      const vu_document bystander = document(kOwner, kBystander.data(), area, 7);
      require(vu_put(m_store, &bystander, kBytes.data(), kBytes.size(), 0, nullptr) == VU_DONE,
              "a bystander is stored");
    }
  }
  ~StoreWithBystanders() { vu_close_store(m_store); }
  StoreWithBystanders(const StoreWithBystanders&) = delete;
  StoreWithBystanders& operator=(const StoreWithBystanders&) = delete;

  vu_store* store() const { return m_store; }
  void check_bystanders() const {
    for (const std::int32_t area : {VU_AREA_USER, VU_AREA_DOCS, VU_AREA_MAIL}) {
      const vu_document bystander = document(kOwner, kBystander.data(), area, 7);
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
  require((status == VU_DONE) == (stream != nullptr), "there is a handle exactly after a success");
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
  require((status == VU_DONE) == (bytes != nullptr), "there is memory exactly after a success");
  vu_free(bytes);
  return status;
}

vu_status one_call(vu_store* store, unsigned char what, const Request& request) {
  const vu_document* const named = &request.document;
  const char* const text = request.text.c_str();
  char buffer[100];
  int count = 0;
  switch (what % 16) {
    case 0: return vu_put(store, named, text, request.text.size(), request.flags, nullptr);
    case 1: return whole(store, request);
    case 2: return vu_remove(store, named);
    case 3: return vu_rename(store, named, &request.other, request.flags & VU_REPLACE);
    case 4: return use_stream(store, request, VU_READ_EXACT + request.flags % 4);
    case 5: return vu_exists(store, named);
    case 6: return vu_file_path(store, named, buffer, sizeof buffer, nullptr);
    case 7: return vu_each_document(store, named->area, named->owner, VU_WITH_INFO, go_on, &count);
    case 8: return vu_each_version(store, named, 0, go_on, &count);
    case 9: return vu_key_set(store, named, request.other.name, text);
    case 10: return vu_key_get(store, named, text, buffer, sizeof buffer, nullptr);
    case 11: return vu_key_delete(store, named, request.other.name);
    case 12: return vu_key_each(store, named, go_on_with_lines, nullptr);
    case 13: return vu_profile_set(store, named->owner, named->name, request.other.name, text);
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
  const StoreWithBystanders bystanders((first & 1U) != 0, (first & 2U) != 0);
  for (int i = 0; i < 6 && !source.is_empty(); ++i) {
    const unsigned char what = source.byte();
    const unsigned char how = source.byte();
    const std::string name = source.text();
    const std::string other = source.text();
    const std::string owner = (how & 128U) != 0 ? kOwner : source.text();
    // A call may change the document that it names.
    if (name.c_str() == kBystander || other.c_str() == kBystander) continue;
    const std::int32_t area = 1 + how % 3;
    const Request request = {document(owner.c_str(), name.c_str(), area, how / 4),
                             document(owner.c_str(), other.c_str(), area, how / 8), other,
                             (how >> 4U) & 3U};
    const vu_status status = one_call(bystanders.store(), what, request);
    require(std::strcmp(vu_status_name(status), "?") != 0, "a status has a name");
    vu_error error = VU_ERROR_INIT;
    vu_last_error(&error);
    require(error.status == status || what % 16 == 4 || what % 16 == 14,
            "the last error has the status of the last call");
  }
  bystanders.check_bystanders();
}

REGISTER_FUZZ_TARGET(c_operations, "c-operations")

}  // namespace
}  // namespace fuzz
