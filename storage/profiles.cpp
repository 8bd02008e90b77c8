#include <string>

#include "platform/host/trace.h"
#include "storage/guard.h"
#include "storage/roots.h"
#include "vu_storage.h"

using storage::guarded;
using storage::kPassOn;
using storage::kSource;
using vu_host::trace_level;

long vu_storage::saveUserOrMasterProfile(const std::string& userOrDomain,
                                         const std::string& fileName,
                                         const STG::NameValueSeq& seq) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  return guarded(
      1L,
      [&] {
        checkInit();
        // The path of the file contains the separator twice; every system treats that as one.
        const std::string folder = roots().s_sConfigDirPath + "\\";
        const std::string name = fileName.empty() ? "profile.txt" : fileName;
        // Required: both results are ignored. A failed write has been traced.
        if (!userOrDomain.empty()) {
          saveKey(userOrDomain, name, STG::UserFilesRepository, seq);
        } else {
          writeKeysFile(folder, name, getStringFromNameValueSeq(seq), true);
        }
        return 0L;
      },
      [&](const std::string& text) { VU_ERROR("vu_storage::saveUserOrMasterProfile : ", text); },
      kPassOn);
}

long vu_storage::loadUserOrMasterProfile(const std::string& userOrDomain,
                                         const std::string& fileName, STG::NameValueSeq& seq) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  return guarded(
      1L,
      [&] {
        checkInit();
        const std::string& folder = roots().s_sConfigDirPath;
        if (!userOrDomain.empty()) {
          const long loaded = loadKey(userOrDomain, fileName, STG::UserFilesRepository, seq);
          // Required: an empty name has no default here, and the result is 1. loadKey() returns 0,
          // because the path of an empty name is that of the owner's folder, which exists.
          return fileName.empty() ? 1L : loaded;
        }
        std::string name = fileName;
        if (name.empty())
          name = vu_file::exists(folder + "\\profile.txt") ? "profile.txt" : "master.txt";
        return readKeysFile(folder, name, seq, false);
      },
      [&](const std::string& text) { VU_ERROR("vu_storage::loadUserOrMasterProfile : ", text); },
      kPassOn);
}
