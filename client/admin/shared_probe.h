#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "client/admin/shared_view.h"

namespace admin {

/// Whether a shared file system has a property that the library needs.
enum class Holds : std::uint8_t { kYes, kNo, kNotTried };
std::string_view name_of(Holds holds);

struct SharedCheck {
  std::string_view code;  ///< "locks-between-hosts"
  Holds holds = Holds::kNotTried;
  std::string detail;  ///< the result in words
  std::string mend;    ///< the mount option or setting that helps; empty unless `holds` is kNo
};

/// Checks with new files whether two hosts can use a storage tree in one folder.
/// @param peer the same folder as the other host sees it. Null: the checks between hosts are not
/// tried.
/// @param file_system for example "fuse.glusterfs" or "nfs4"; selects the options to recommend.
std::vector<SharedCheck> check_shared(SharedView& host, SharedView* peer,
                                      const std::string& file_system);

/// The checks of a folder and their results.
struct SharedTrial {
  std::string folder;
  std::string peer;  ///< empty: none
  std::string file_system;
  std::vector<SharedCheck> checks;
};

/// Runs check_shared() in a new folder "stgctl-shared-trial-..." below @p folder, and removes it. A
/// kill leaves that folder.
/// @param peer the same folder through another mount, or empty.
SharedTrial try_shared(const std::string& folder, const std::string& peer);

/// What to change if a check fails on a file system.
std::string mend_of(std::string_view code, const std::string& file_system);

}  // namespace admin
