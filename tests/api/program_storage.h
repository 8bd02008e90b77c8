#pragma once

#include <string>

#include "tests/support/scratch.h"
#include "vu_storage.h"

/// The one storage of a test program that sees the library from outside: it is initialised once in
/// a process, so all its tests share it. Every test uses owners of its own. Owners have folders of
/// their own, and files are not adopted. Helper processes do not use it.
/// @return the root storage folder; removed when the program ends.
inline const std::string& program_storage() {
  static const scratch_folder root;
  static const bool initialised = vu_storage::initRootStorage(root.path(), true, false);
  static const std::string folder = initialised ? root.path("storage") : "(initialised before)";
  return folder;
}
