#pragma once

#include <string>

#include "tests/support/scratch.h"
#include "vu_storage.h"

/// The storage of a test program that uses the library from outside. It is initialised once per
/// process, so all tests share it, except helper processes. Each test uses other owners, which have
/// separate folders. Files are not adopted.
/// @return the root storage folder; removed when the program ends.
inline const std::string& program_storage() {
  static const scratch_folder root;
  static const bool initialised = vu_storage::initRootStorage(root.path(), true, false);
  static const std::string folder = initialised ? root.path("storage") : "(initialised before)";
  return folder;
}
