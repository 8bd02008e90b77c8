#include <atomic>
#include <cstdint>
#include <string>
#include <utility>

#include "index/index_format.h"
#include "index/mail_root.h"
#include "index/numbers.h"
#include "platform/host/host.h"
#include "platform/host/trace.h"
#include "platform/os/os.h"
#include "stg_index.h"
#include "storage/common.h"
#include "storage/guard.h"
#include "storage/layout.h"
#include "storage/roots.h"
#include "vu_storage.h"

using storage::guarded;
using storage::kSource;
using vu_host::trace_level;

// The mark is a constant at load time, the string is constructed empty. Neither uses another static
// object, so the order of their construction does not matter.
constinit std::int32_t vu_storage::s_initDone = 0;
std::string vu_storage::s_sTdcTimeStamp;
constinit std::atomic<const StorageGate::Published*> StorageGate::s_published = nullptr;

void StorageGate::publish(vu_storage::Roots roots) {
  // After a failed initialisation each operation tries again, usually with the same roots.
  if (roots == vu_storage::roots()) return;
  const Published* const earlier = s_published.load(std::memory_order_relaxed);
  s_published.store(new Published{std::move(roots), earlier}, std::memory_order_release);
}

const vu_storage::Roots& vu_storage::roots() {
  static const auto* const before_any = new Roots;
  const StorageGate::Published* const published =
      StorageGate::s_published.load(std::memory_order_acquire);
  return published != nullptr ? published->roots : *before_any;
}

const std::string& StorageGate::mail_root() {
  vu_storage::checkInit();
  return vu_storage::roots().s_sMailPath;
}

const std::string& initialised_mail_root() { return StorageGate::mail_root(); }

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
    // Not VU_ERROR: the text contains the line of its record.
    if (trace::wanted(vu_host::trace_event::error))
      trace::emit(here, vu_host::trace_event::error, text);
    host::record_history(text, 4, 0, 0);
    VU_SCOPE_MESSAGE("root storage already initialized");
    return false;
  }

  const StorageLock lock;
  if (StorageGate::initialised()) return false;
  Roots begun = roots();
  begun.s_bUseDomain = useDomain;
  begun.s_storagePath = root + "\\storage";
  const std::string text = "ztVuStorage:s_storagePath:" + begun.s_storagePath;
  VU_TRACE_M(text);
  host::record_history(text, 1, 4, 0);
  // Before initPath(), which sets the mark: a thread that sees the mark must see the new mode.
  STGIndex::setSynchronizeMode(synchronize);
  initPath(std::move(begun));
  return true;
}

void vu_storage::initPath(Roots begun) {
  VU_TRACE_SCOPE(kSource, trace_level::xl, "ztVuStorage:initPath");
  guarded(
      [&] {
        const std::string& root = begun.s_storagePath;
        begun.s_sCorpPath = root + "\\docs";
        begun.s_sSemletPath = root + "\\semlets";
        begun.s_sUserPath = root + "\\user";
        begun.s_sListPath = root + "\\list";
        begun.s_sMailPath = root + "\\mail";
        // Required: the areas are published even if the host's configuration throws.
        StorageGate::publish(begun);
        begun.s_sConfigDirPath = vu_utf8string(host::config().binary_folder()).str() + "\\config";
        StorageGate::publish(begun);
        for (const std::string* const folder :
             {&begun.s_storagePath, &begun.s_sCorpPath, &begun.s_sSemletPath, &begun.s_sUserPath,
              &begun.s_sListPath, &begun.s_sMailPath})
          make_folder_if_missing(*folder);
        if (!os::locks_belong_to_handles(begun.s_storagePath)) {
          VU_WARNING(
              "ztVuStorage:the locks of this SMB mount do not keep two programs apart, "
              "see docs/network-shares.md:",
              begun.s_storagePath);
        }
        // Required: a folder that could not be created is not a failure; only an exception is.
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
  Roots begun = roots();
  begun.s_storagePath = os::to_narrow(folder);
  const std::string text = "ztVuStorage:s_storagePath:" + begun.s_storagePath;
  VU_TRACE_M(text);
  host::record_history(text, 1, 4, 0);
  initPath(std::move(begun));
}

// ---- getters ---------------------------------------------------------------------------------
// They are twins: the scope that a function opens has its own name.

const std::string& vu_storage::getStoragePath() {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  checkInit();
  return roots().s_storagePath;
}

const std::string& vu_storage::getCorpPath() {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  checkInit();
  return roots().s_sCorpPath;
}

const std::string& vu_storage::getUserPath() {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  checkInit();
  return roots().s_sUserPath;
}

const std::string& vu_storage::getListPath() {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  checkInit();
  return roots().s_sListPath;
}

const std::string& vu_storage::getConfigDirPath() {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  checkInit();
  return roots().s_sConfigDirPath;
}

const std::string& vu_storage::getMailPath() {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  checkInit();
  return roots().s_sMailPath;
}

const std::string& vu_storage::getSemletPath() {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  checkInit();
  return roots().s_sSemletPath;
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

const std::string& vu_storage::areaPath(const Roots& roots, STG::RepositoryType type) {
  switch (type) {
    case STG::CorporateRepository: return roots.s_sCorpPath;
    case STG::MailRepository:
    case STG::MailFilesRepository: return roots.s_sMailPath;
    default: return roots.s_sUserPath;
  }
}

bool vu_storage::createUserOrDomainNameDirectory(const std::string& userOrDomain,
                                                 const std::string& entry, STG::RepositoryType type,
                                                 std::string& dir, bool create) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  checkInit();
  // Copies, because either argument may be the string that receives the folder.
  const std::string owner = userOrDomain;
  const std::string name = entry;

  // Required: the area folder is created whatever `create` says, and its exceptions go to the
  // caller.
  const Roots& in_force = roots();
  dir = areaPath(in_force, type);
  const bool has_area = make_folder_if_missing(dir) == Folder::kWasThere;

  return guarded(
      false,
      [&] {
        const auto reach = [&] {
          if (vu_file::exists(dir)) return true;
          if (create) vu_file::createDir(dir);
          return create;
        };
        if (in_force.s_bUseDomain) dir += "\\" + (owner.empty() ? "_" : owner);
        // The area folder itself has just been checked.
        if ((in_force.s_bUseDomain || !has_area) && !reach()) return false;
        if (type != STG::CorporateRepository) return true;
        dir += "\\" + layout::bucket_name(clamp32(HashCode_asJava(name, layout::kBuckets)));
        return reach();
      },
      [&](const std::string& text) {
        VU_ERROR("vu_storage::createUserOrDomainNameDirectory : ", text);
      },
      [&] {
        VU_ERROR("vu_storage::createUserOrDomainNameDirectory : Problem, can't create ", dir);
      });
}

long vu_storage::HashCode_asJava(const std::string& s, int modulus) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  return layout::hash_of(s, modulus);
}

std::string vu_storage::getLogicalName(const std::string& name, long timestamp) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  return index_format::key_of(name, clamp32(timestamp));
}

bool vu_storage::isVuDocExt(const std::string& ext) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  checkInit();
  return index_format::is_document_extension(ext);
}
