#pragma once

#include <cstdint>
#include <string>

#include "platform/os/os.h"
#include "vu/storage.h"

namespace api {

/// Size and times of a version's file; -1 if the system cannot tell.
inline vu_info info_of(const std::string& path, std::int64_t version) {
  vu_info info = VU_INFO_INIT;
  info.version = version;
  os::FileStat found;
  if (!os::stat(path, found).ok()) return info;
  info.size = static_cast<std::int64_t>(found.size);
  info.modified = found.modify_time;
  info.accessed = found.access_time;
  return info;
}

}  // namespace api
