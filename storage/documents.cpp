#include <cstdint>
#include <string>

#include "file/path_text.h"
#include "index/numbers.h"
#include "platform/host/trace.h"
#include "stg_index.h"
#include "storage/common.h"
#include "storage/guard.h"
#include "vu_storage.h"

using storage::guarded;
using storage::kPassOn;
using storage::kSource;
using vu_host::trace_level;

// ---- reading and writing -----------------------------------------------------------------------

void vu_storage::OpenRead(vu_file& file, const std::string& userOrDomain, const std::string& entry,
                          STG::RepositoryType type, long timestamp) {
  VU_TRACE_SCOPE(kSource, trace_level::xs, "vu_storage::OpenRead");
  std::string dir;
  std::string physical;
  OpenOrClosed opened(file);
  guarded(
      [&] {
        checkInit();
        const std::int32_t required = clamp32(timestamp);
        VU_TRACE_S("strUserOrDomainName :", userOrDomain, " , \t strEntry : ", entry,
                   " , \t timestamp : ", required);
        if (entry.empty()) return;
        if (!createUserOrDomainNameDirectory(userOrDomain, entry, type, dir, false)) return;

        const bool corporate = type == STG::CorporateRepository;
        const bool exact = corporate && vu_file::getExtension(entry) == "kdf";
        if (!STGIndex::exists(dir, entry, exact ? required : 0, physical)) return;

        const auto found =
            static_cast<std::int32_t>(vu_file::modify_time(path_text::join(dir, physical)));
        if (found == 0) return;
        VU_TRACE_M("timestamp required = ", required, ", found = ", found);
        if (corporate && !exact && found < required) return;
        opened.open(dir, physical, vu_file_base::o_read);
      },
      [&](const std::string& text) { VU_ERROR("vu_storage::OpenRead : ", text); },
      [&] {
        VU_ERROR("vu_storage::OpenRead : Exception when try open file for read : ", dir, "\\",
                 physical);
      });
}

void vu_storage::OpenRead(vu_file& file, const vu_utf8string& userOrDomain,
                          const vu_utf8string& entry, STG::RepositoryType type, long timestamp) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  OpenRead(file, getBuffer(userOrDomain), getBuffer(entry), type, timestamp);
}

bool vu_storage::OpenWrite2(vu_file& file, const std::string& userOrDomain,
                            const std::string& entry, STG::RepositoryType type, bool replace,
                            long timestamp) {
  VU_TRACE_SCOPE(kSource, trace_level::m, "vu_storage::OpenWrite: ", userOrDomain, " : ", entry);
  OpenOrClosed opened(file);
  return guarded(
      false,
      [&] {
        checkInit();
        if (entry.empty()) return false;
        // Required: the operation continues even if the owner's folder could not be created. The
        // index then finds nothing and cannot create a file.
        std::string dir;
        createUserOrDomainNameDirectory(userOrDomain, entry, type, dir, true);

        std::string physical;
        const bool existed = STGIndex::exists(dir, entry, timestamp, physical);
        if (!existed) physical = STGIndex::create(dir, entry, timestamp);
        if (replace && existed) {
          // The handle ends up closed or open on another file. Its lock may be that of a category
          // file, which the next line needs.
          if (type == STG::UserFilesRepository && file.is_open()) file.close();
          if (type == STG::UserFilesRepository) RemoveFromCategFiles(dir, entry);
          if (type == STG::CorporateRepository)
            vu_file::recurseRemoveDir(path_text::join(dir, physical) + "_" + s_sTdcTimeStamp);
        }
        if (replace || !existed) opened.open(dir, physical, vu_file_base::o_truncate);
        return true;
      },
      [&](const std::string& text) { VU_ERROR("vu_storage::OpenWrite : ", text); },
      [&] { VU_ERROR("vu_storage::OpenWrite : Can't open file for write : ", entry); });
}

void vu_storage::OpenWrite(vu_file& file, const std::string& userOrDomain, const std::string& entry,
                           STG::RepositoryType type, bool replace, long timestamp) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  OpenWrite2(file, userOrDomain, entry, type, replace, timestamp);
}

void vu_storage::OpenWrite(vu_file& file, const vu_utf8string& userOrDomain,
                           const vu_utf8string& entry, STG::RepositoryType type, bool replace,
                           long timestamp) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  OpenWrite(file, getBuffer(userOrDomain), getBuffer(entry), type, replace, timestamp);
}

void vu_storage::Read(vu_file& file, std::string& buffer, long length) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  guarded(
      [&] {
        checkInit();
        file.read(buffer, clamp32(length));
      },
      [&](const std::string& text) {
        buffer.clear();
        VU_ERROR("vu_storage::Read: ", text);  // sic: no blank before the colon
      },
      [&] { VU_ERROR("vu_storage::Read : Cannot read from file not opened"); });
}

void vu_storage::Write(vu_file& file, const std::string& data) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  guarded(
      [&] {
        checkInit();
        file.write(data);
      },
      [&](const std::string& text) { VU_ERROR("vu_storage::Write : ", text); },
      [&] { VU_ERROR("vu_storage::Write : Cannot Write to file"); });  // sic
}

void vu_storage::Close(vu_file& file) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  guarded(
      [&] {
        // The close comes first: the file must not stay locked if the initialisation fails.
        file.close();
        checkInit();
      },
      [&](const std::string& text) { VU_ERROR("Error in vu_storage::Close : ", text); }, kPassOn);
}

// ---- queries -----------------------------------------------------------------------------------

bool vu_storage::IsFileExist(const std::string& userOrDomain, const std::string& entry,
                             STG::RepositoryType type, long timestamp, std::string* folderOut,
                             std::string* physicalOut) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  return guarded(
      false,
      [&] {
        checkInit();
        // Required: an empty name has no files, even if all owners share one folder.
        if (userOrDomain.empty()) return false;
        std::string dir;
        if (!createUserOrDomainNameDirectory(userOrDomain, entry, type, dir, false)) return false;
        if (!vu_file::is_dir(dir)) return false;
        std::string physical;
        if (!STGIndex::exists(dir, entry, timestamp, physical)) return false;
        if (physicalOut != nullptr) *physicalOut = physical;
        if (folderOut != nullptr) *folderOut = dir;
        return true;
      },
      [&](const std::string& text) { VU_ERROR("Error : vu_storage::IsFileExist : ", text); },
      [&] { VU_ERROR("Error : vu_storage::IsFileExist"); });
}

bool vu_storage::IsFileExist(const vu_utf8string& userOrDomain, const vu_utf8string& entry,
                             STG::RepositoryType type, long timestamp, std::string* folderOut,
                             std::string* physicalOut) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  return IsFileExist(getBuffer(userOrDomain), getBuffer(entry), type, timestamp, folderOut,
                     physicalOut);
}

long vu_storage::getLattestTimestamp(const std::string& userOrDomain, const std::string& entry,
                                     STG::RepositoryType type) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  checkInit();
  long latest = -1;
  if (entry.empty()) return latest;
  std::string dir;
  if (createUserOrDomainNameDirectory(userOrDomain, entry, type, dir, false))
    STGIndex::lastVersion(dir, entry, latest);
  return latest;
}

bool vu_storage::getLastVersion(const std::string& folder, const std::string& entry,
                                long& timestamp) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  return STGIndex::lastVersion(folder, entry, timestamp);
}

bool vu_storage::getIndexNameFromDocName(const std::string& folder, const std::string& entry,
                                         long timestamp, std::string& physical) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  const auto failed = [&](const auto&...) {
    VU_ERROR("Error : vu_storage::getIndexNameFromFileName");  // sic: the name of another function
  };
  return guarded(
      false,
      [&] {
        checkInit();
        return STGIndex::exists(folder, entry, timestamp, physical);
      },
      failed, failed);
}

void vu_storage::update_IndexDat(const std::string& folder) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  checkInit();
  STGIndex::updateIndexFile(folder);
}

// ---- whole files --------------------------------------------------------------------------------

namespace {

/// Closes an open file and returns its path in @p path; false if it is not open.
bool give_up(vu_file& file, std::string& path) {
  if (!file.is_open()) return false;
  path = file.getFilePath();
  file.close();
  return true;
}

}  // namespace

bool vu_storage::copyToStorage(const std::string& source, const std::string& userOrDomain,
                               const std::string& entry, STG::RepositoryType type, bool replace,
                               long timestamp) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  vu_storage facade;  // runs checkInit()
  vu_file file;
  facade.OpenWrite2(file, userOrDomain, entry, type, replace, timestamp);
  std::string target;
  if (!give_up(file, target)) return false;
  // Required: OpenWrite2() has created the file. So a copy with @p replace false always fails, and
  // leaves a new version empty.
  return vu_file::copyFile(source, target, replace);
}

bool vu_storage::copyFromStorage(const std::string& destination, const std::string& userOrDomain,
                                 const std::string& entry, STG::RepositoryType type,
                                 long timestamp) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  vu_storage facade;  // runs checkInit()
  vu_file file;
  facade.OpenRead(file, userOrDomain, entry, type, timestamp);
  std::string source;
  if (!give_up(file, source)) return false;
  return vu_file::copyFile(source, destination, true);
}

bool vu_storage::copyFileToStorage(const std::string& sourceFolder, const std::string& name,
                                   const std::string& userOrDomain, STG::RepositoryType type) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  checkInit();
  // Required: the operation continues even if the owner's folder could not be created.
  std::string dir;
  createUserOrDomainNameDirectory(userOrDomain, name, type, dir, true);
  STGIndex::remove(dir, name, 0);
  const std::string physical = STGIndex::create(dir, name, 0);
  const bool copied =
      vu_file::copyFile(path_text::join(sourceFolder, name), path_text::join(dir, physical), true);
  STGIndex::updateIndexFile(dir);
  return copied;
}

bool vu_storage::copyFileToStorage(const std::string& sourceFolder, const std::string& name,
                                   const vu_utf8string& userOrDomain, STG::RepositoryType type) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  checkInit();
  return copyFileToStorage(sourceFolder, name, getBuffer(userOrDomain), type);
}

bool vu_storage::copyFileToUserPath(const std::string& sourceFolder, const std::string& name,
                                    const std::string& userOrDomain) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  checkInit();
  return copyFileToStorage(sourceFolder, name, userOrDomain, STG::UserFilesRepository);
}
