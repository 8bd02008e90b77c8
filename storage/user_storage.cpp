#include <map>
#include <string>
#include <utility>

#include "file/path_text.h"
#include "platform/host/trace.h"
#include "stg_index.h"
#include "storage/guard.h"
#include "storage/roots.h"
#include "vu_storage.h"

using storage::guarded;
using storage::kSource;
using vu_host::trace_level;

// ---- users ------------------------------------------------------------------------------------

bool vu_storage::RenameUserStorage(const std::string& oldName, const std::string& newName) {
  VU_TRACE_SCOPE(kSource, trace_level::xs, "vu_storage::RenameUserStorage : ", oldName, "\t",
                 newName);
  return guarded(
      false,
      [&] {
        checkInit();
        const Roots& in_force = roots();
        for (const std::string* const area :
             {&in_force.s_sMailPath, &in_force.s_sListPath, &in_force.s_sUserPath}) {
          const std::string target = path_text::join(*area, newName);
          if (vu_file::exists(target)) {
            VU_TRACE_XS("Can't rename to ", newName, " : because ", target,
                        "already exists");  // sic: no blank
            return false;
          }
        }
        // Required: a folder that is missing or cannot be renamed is not a failure.
        for (const std::string* const area :
             {&in_force.s_sMailPath, &in_force.s_sListPath, &in_force.s_sUserPath})
          vu_file::rename(path_text::join(*area, oldName), path_text::join(*area, newName));
        return true;
      },
      [&](const std::string& text) { VU_ERROR("vu_storage::RenameUserStorage ", text); },
      [&] { VU_ERROR("Problem in vu_storage::RenameUserStorage "); });  // sic: a blank ends it
}

bool vu_storage::RemoveUserStorage(const vu_utf8string& user) {
  VU_TRACE_SCOPE(kSource, trace_level::m, "vu_storage::RemoveUserStorage : '", user.c_str(),
                 " '");  // sic: a blank before the apostrophe
  guarded(
      [&] {
        checkInit();
        const Roots& in_force = roots();
        const std::string name = getBuffer(user);
        // Required: an empty name removes the area folders themselves.
        for (const std::string* const area :
             {&in_force.s_sMailPath, &in_force.s_sListPath, &in_force.s_sUserPath})
          vu_file::recurseRemoveDir(path_text::join(*area, name));
      },
      [&](const std::string& text) { VU_ERROR("vu_storage::RemoveUserStorage ", text); },
      [&] { VU_ERROR("vu_storage::RemoveUserStorage ", user.c_str()); });
  return true;
}

bool vu_storage::RemoveUsersStorage(const Sequence<vu_utf8string>& names) {
  VU_TRACE_SCOPE(kSource, trace_level::m, "vu_storage::RemoveUsersStorage");
  guarded(
      [&] {
        checkInit();
        for (const vu_utf8string& name : names) RemoveUserStorage(name);
      },
      [&](const std::string& text) { VU_ERROR("vu_storage::RemoveUsersStorage ", text); },
      [&] { VU_ERROR("vu_storage::RemoveUsersStorage"); });
  return true;
}

// ---- single documents -------------------------------------------------------------------------

bool vu_storage::RemoveFile(const std::string& userOrDomain, const std::string& entry,
                            STG::RepositoryType type, long timestamp) {
  VU_TRACE_SCOPE(kSource, trace_level::m, "vu_storage::RemoveFile ");  // sic: a blank ends it
  return guarded(
      false,
      [&] {
        checkInit();
        if (userOrDomain.empty()) return true;
        std::string dir;
        if (!createUserOrDomainNameDirectory(userOrDomain, entry, type, dir, false)) return true;
        STGIndex::remove(dir, entry, timestamp);
        StorageGate::remove_lines(dir, entry, type);
        return true;
      },
      [&](const std::string& text) { VU_ERROR("Error : vu_storage::RemoveFile : ", text); },
      [&] { VU_ERROR("Error : vu_storage::RemoveFile"); });
}

bool vu_storage::RemoveFile(const vu_utf8string& userOrDomain, const vu_utf8string& entry,
                            STG::RepositoryType type, long timestamp) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  return RemoveFile(getBuffer(userOrDomain), getBuffer(entry), type, timestamp);
}

void vu_storage::AddExistVUFilesToMap(const std::string& folder,
                                      std::multimap<std::string, std::string>& map) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  // Required: the texts use a shorter name for the operation.
  guarded(
      [&] {
        const StorageLock lock;
        for (const std::string& name : vu_file::filenames(folder)) {
          std::string stem = name;
          std::string extension;
          vu_file::split(stem, extension);
          map.emplace(getLogicalName(name, 0), std::move(stem));
        }
      },
      [&](const std::string& text) { VU_ERROR("vu_storage::AddExistFilesToMap : ", text); },
      [&] { VU_ERROR("vu_storage::AddExistFilesToMap"); });
}
