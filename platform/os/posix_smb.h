#pragma once

#include <linux/magic.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>

#include <cstdint>
#include <string>

#include "platform/os/posix_calls.h"

/// @file
/// The mounts of the SMB client of Linux. There a lock does not belong to its handle, and a rename
/// that must not replace a file can replace one: docs/network-shares.md.
namespace os::posix {

inline bool is_on_smb(const std::string& path) {
  struct ::statfs found {};
  if (::statfs(path.c_str(), &found) != 0) return false;
  // The kernel keeps the number in 32 bits, and statfs() may extend its sign.
  switch (static_cast<std::uint32_t>(found.f_type)) {
    case SMB_SUPER_MAGIC:
    case CIFS_SUPER_MAGIC:
    case SMB2_SUPER_MAGIC:
      return true;
    default:
      return false;
  }
}

/// The same, faster, if @p info is known: every SMB mount has the major device number 0.
inline bool is_on_smb(const std::string& path, const FileInfo& info) {
  return major(info.st_dev) == 0 && is_on_smb(path);
}

}  // namespace os::posix
