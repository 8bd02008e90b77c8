// Stores versions of a document side by side, and looks for the latest one.
// store_versions_storage [FOLDER [OWNER [NAME]]]
#include <filesystem>
#include <iostream>
#include <string>

#include "vu_storage.h"

namespace {

// Whether all of the text was written.
bool store(const std::string& owner, const std::string& name, long version,
           const std::string& text) {
  vu_storage storage;
  vu_file file;
  // An existing version of that timestamp is emptied under its lock and written anew.
  if (!storage.OpenWrite2(file, owner, name, STG::CorporateRepository, true, version)) return false;
  if (!file.is_open()) return false;
  // The handle tells how much was written; vu_storage::Write() would trace a failure only.
  const bool complete = file.write(text) == static_cast<int>(text.size());
  // Whether it reached the device is traced only: a program that has to know installs a sink for
  // errors.
  storage.Close(file);
  return complete;
}

}  // namespace

int main(int argc, char** argv) {
  const std::filesystem::path folder = argc > 1 ? argv[1] : "store-versions";
  const std::string owner = argc > 2 ? argv[2] : "anna";
  // Of corporate documents those ending in "kdf" have versions: each is read by its very timestamp.
  const std::string name = argc > 3 ? argv[3] : "report.kdf";

  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error || !vu_storage::initRootStorage(folder.string(), true, false)) {
    std::cerr << "no storage in " << folder << "\n";
    return 1;
  }

  for (const long version : {20240131L, 20240229L, 20240331L}) {
    if (!store(owner, name, version, "the report of " + std::to_string(version) + "\n")) {
      std::cerr << name << " of " << version << " is not stored; is there room in " << folder
                << "?\n";
      return 1;
    }
  }

  try {
    const long latest = vu_storage::getLattestTimestamp(owner, name, STG::CorporateRepository);
    std::cout << "the latest version of " << name << " is " << latest << "\n";
    return latest == 20240331 ? 0 : 1;
  } catch (const vu_file_except& failure) {
    std::cerr << "the index of " << name << " cannot be read: " << failure.what() << "\n";
    return 1;
  }
}
