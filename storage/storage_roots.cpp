#include <atomic>
#include <cstdint>
#include <string>

#include "index/document_extensions.h"
#include "index/mail_root.h"
#include "index/width.h"
#include "platform/host/host.h"
#include "platform/host/trace.h"
#include "platform/os/os.h"
#include "stg_index.h"
#include "storage/folders.h"
#include "storage/guard.h"
#include "storage/layout.h"
#include "storage/storage_mutex.h"
#include "vu_storage.h"

using storage::guarded;
using storage::kSource;
using vu_host::trace_level;

/// The marker of the initialisation, and the one way into the facade for the index.
struct StorageGate {
  static constexpr std::int32_t kInitialised = 1234;

  /// Whoever sees the marker sees everything that was written before it was set.
  static bool initialised() {
    return std::atomic_ref<std::int32_t>(vu_storage::s_initDone).load(std::memory_order_acquire) ==
           kInitialised;
  }
  static void set_initialised() {
    std::atomic_ref<std::int32_t>(vu_storage::s_initDone)
        .store(kInitialised, std::memory_order_release);
  }
  static const std::string& mail_root() {
    vu_storage::checkInit();
    return vu_storage::s_sMailPath;
  }
};

const std::string& initialised_mail_root() { return StorageGate::mail_root(); }

namespace {

/// Keeps a path, and writes only what changes: after an initialisation that failed, others may be
/// reading the paths while the next operation tries once more.
void keep(std::string& path, const std::string& value) {
  if (path != value) path = value;
}

}  // namespace

// ---- initialisation --------------------------------------------------------------------------

vu_storage::vu_storage() {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  if (!StorageGate::initialised()) checkInit();
}

vu_storage::~vu_storage() = default;

vu_storage& vu_storage::operator=(const vu_storage&) { return *this; }

bool vu_storage::initRootStorage(const std::string& root, bool useDomain, bool synchronize) {
  VU_TRACE_SCOPE(kSource, trace_level::xl, "ztVuStorage:initRootStorage");
  if (StorageGate::initialised()) {
    const vu_host::trace_site here = vu_trace_scope.at(__LINE__);
    const std::string text = "**ERROR:ztVuStorage:root storage already initialized [vu_storage;" +
                             std::to_string(here.line) + "]";
    if (trace::wanted(vu_host::trace_event::error))
      trace::emit(here, vu_host::trace_event::error, text);
    host::record_history(text, 4, 0, 0);
    VU_SCOPE_MESSAGE("root storage already initialized");
    return false;
  }

  const StorageLock lock;
  if (StorageGate::initialised()) return false;
  s_bUseDomain = useDomain;
  keep(s_storagePath, root + "\\storage");
  const std::string text = "ztVuStorage:s_storagePath:" + s_storagePath;
  VU_TRACE_M(text);
  host::record_history(text, 1, 4, 0);
  // Before initPath() sets the marker: nobody who finds the storage initialised may meet the old
  // switch.
  STGIndex::setSynchronizeMode(synchronize);
  initPath(s_storagePath);
  return true;
}

void vu_storage::initPath(const std::string& storagePath) {
  VU_TRACE_SCOPE(kSource, trace_level::xl, "ztVuStorage:initPath");
  guarded(
      [&] {
        keep(s_sCorpPath, storagePath + "\\docs");
        keep(s_sSemletPath, storagePath + "\\semlets");
        keep(s_sUserPath, storagePath + "\\user");
        keep(s_sListPath, storagePath + "\\list");
        keep(s_sMailPath, storagePath + "\\mail");
        keep(s_sConfigDirPath, vu_utf8string(host::config().binary_folder()).str() + "\\config");
        make_folder_if_missing(storagePath);
        make_folder_if_missing(s_sCorpPath);
        make_folder_if_missing(s_sSemletPath);
        make_folder_if_missing(s_sUserPath);
        make_folder_if_missing(s_sListPath);
        make_folder_if_missing(s_sMailPath);
        // Required: a folder that could not be made does not count, only an exception does.
        StorageGate::set_initialised();
      },
      [&](const std::string& text) { VU_ERROR("Error in vu_storage initRootStorage : ", text); },
      [&] { VU_ERROR("Cannot\tcreate storage dir"); });  // sic
}

void vu_storage::checkInit() {
  VU_TRACE_SCOPE(kSource, trace_level::xl, "ztVuStorage:checkInit");
  if (StorageGate::initialised()) return;
  const StorageLock lock;
  if (StorageGate::initialised()) return;

  vu_host::temporary_files& temporary = host::temp();
  temporary.initialise("MY_PROCESS", "MY_COMP");
  ucs2string folder = temporary.server_folder();
  if (!folder.empty() && folder.at(folder.size() - 1) == u'\\')
    folder = folder.substr(0, folder.size() - 1);
  keep(s_storagePath, os::to_narrow(folder));
  const std::string text = "ztVuStorage:s_storagePath:" + s_storagePath;
  VU_TRACE_M(text);
  host::record_history(text, 1, 4, 0);
  initPath(s_storagePath);
}

// ---- getters ---------------------------------------------------------------------------------

const std::string& vu_storage::getStoragePath() {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  checkInit();
  return s_storagePath;
}

const std::string& vu_storage::getCorpPath() {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  checkInit();
  return s_sCorpPath;
}

const std::string& vu_storage::getUserPath() {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  checkInit();
  return s_sUserPath;
}

const std::string& vu_storage::getListPath() {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  checkInit();
  return s_sListPath;
}

const std::string& vu_storage::getConfigDirPath() {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  checkInit();
  return s_sConfigDirPath;
}

const std::string& vu_storage::getMailPath() {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  checkInit();
  return s_sMailPath;
}

const std::string& vu_storage::getSemletPath() {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  checkInit();
  return s_sSemletPath;
}

const std::string& vu_storage::getTdcTimeStamp() {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  checkInit();
  return s_sTdcTimeStamp;
}

void vu_storage::setTdcTimeStamp(const std::string& value) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  s_sTdcTimeStamp = value;
}

// ---- folders and names -----------------------------------------------------------------------

const std::string& vu_storage::areaPath(STG::RepositoryType type) {
  switch (type) {
    case STG::CorporateRepository:
      return s_sCorpPath;
    case STG::MailRepository:
    case STG::MailFilesRepository:
      return s_sMailPath;
    default:
      return s_sUserPath;
  }
}

bool vu_storage::createUserOrDomainNameDirectory(const std::string& userOrDomain,
                                                 const std::string& entry, STG::RepositoryType type,
                                                 std::string& dir, bool create) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  checkInit();
  // Copies, because either may be the string that receives the folder.
  const std::string owner = userOrDomain;
  const std::string name = entry;

  // Required: the area folder is made whatever `create` says, and its exceptions are the caller's.
  dir = areaPath(type);
  const bool has_area = make_folder_if_missing(dir) == Folder::kWasThere;

  return guarded(
      false,
      [&] {
        const auto reach = [&] {
          if (vu_file::exists(dir)) return true;
          if (create) vu_file::createDir(dir);
          return create;
        };
        if (s_bUseDomain) dir += "\\" + (owner.empty() ? "_" : owner);
        // The area folder itself was asked for a moment ago.
        if ((s_bUseDomain || !has_area) && !reach()) return false;
        if (type != STG::CorporateRepository) return true;
        dir += "\\" + layout::bucket_name(HashCode_asJava(name, layout::kBuckets));
        return reach();
      },
      [&](const std::string& text) {
        VU_ERROR("vu_storage::createUserOrDomainNameDirectory : ", text);
      },
      [&] {
        VU_ERROR("vu_storage::createUserOrDomainNameDirectory : Problem, can't create ", dir);
      });
}

std::int32_t vu_storage::HashCode_asJava(const std::string& s, std::int32_t modulus) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  return layout::hash_of(s, modulus);
}

std::string vu_storage::getLogicalName(const std::string& name, long timestamp) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  char text[15] = {};
  std::snprintf(text, sizeof text, "%.10u", static_cast<unsigned int>(clamp32(timestamp)));
  return name + "_" + text;
}

bool vu_storage::isVuDocExt(const std::string& ext) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  checkInit();
  return is_document_extension(ext);
}
