#pragma once

#include <cstdint>
#include <string>

#include "vu_file.h"

enum class Folder : std::uint8_t { kWasThere, kWasMissing };

/// Creates one folder unless it exists; traces a failure. @return whether the folder existed.
inline Folder make_folder_if_missing(const std::string& path) {
  if (vu_file::exists(path)) return Folder::kWasThere;
  vu_file::createDir(path);
  return Folder::kWasMissing;
}
