#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "client/admin/shared_view.h"

namespace admin {

/// Whether a shared file system offers what the library needs.
enum class Holds : std::uint8_t { kYes, kNo, kNotTried };
std::string_view name_of(Holds holds);

struct SharedCheck {
  std::string_view code;  ///< "locks-between-hosts"
  Holds holds = Holds::kNotTried;
  std::string detail;  ///< what was seen
  std::string mend;    ///< the mount option or setting that mends it; empty where it holds
};

/// Tries on files of its own whether two hosts that see one folder can keep a storage tree in it.
/// Each is a view of the same folder; with one host (@p peer null) what lies between hosts is not
/// tried.
/// @param file_system "fuse.glusterfs", "nfs4": whose options are named where something is missing.
std::vector<SharedCheck> check_shared(SharedView& host, SharedView* peer,
                                      const std::string& file_system);

/// What is tried where.
struct SharedTrial {
  std::string folder;
  std::string peer;  ///< empty for none
  std::string file_system;
  std::vector<SharedCheck> checks;
};

/// check_shared() in a folder made for it below @p folder, which is gone afterwards.
/// @param peer the same folder through another mount, or empty.
SharedTrial try_shared(const std::string& folder, const std::string& peer);

/// What mends a check on a kind of file system.
std::string mend_of(std::string_view code, const std::string& file_system);

}  // namespace admin
