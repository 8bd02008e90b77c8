#pragma once

#include <string>

#include "vu_file.h"

/// Makes one folder unless it is there; a failure is traced and nothing else.
inline void make_folder_if_missing(const std::string& path) {
  if (!vu_file::exists(path)) vu_file::createDir(path);
}
