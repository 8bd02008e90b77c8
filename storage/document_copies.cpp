#include <string>

#include "platform/host/trace.h"
#include "stg_index.h"
#include "storage/guard.h"
#include "vu_storage.h"

using storage::kSource;
using vu_host::trace_level;

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
  const bool copied = vu_file::copyFile(sourceFolder + "\\" + name, dir + "\\" + physical, true);
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
