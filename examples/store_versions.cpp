// Stores several versions of a document and finds the latest one.
// store_versions_storage [FOLDER [OWNER [NAME]]]
#include <filesystem>
#include <iostream>
#include <string>

#include "vu_storage.h"

namespace {

// @return whether the whole text was written.
bool store(const std::string& owner, const std::string& name, long version,
           const std::string& text) {
  vu_storage storage;
  vu_file file;
  // Replaces an existing version of that timestamp: empties its file under an exclusive lock.
  if (!storage.OpenWrite2(file, owner, name, STG::CorporateRepository, true, version)) return false;
  if (!file.is_open()) return false;
  // file.write() returns the number of written bytes; vu_storage::Write() only traces a failure.
  const bool complete = file.write(text) == static_cast<int>(text.size());
  // If the text did not reach the device, Close() only traces the failure. A program that needs to
  // know this installs a trace sink for errors.
  storage.Close(file);
  return complete;
}

}  // namespace

int main(int argc, char** argv) {
  const std::filesystem::path folder = argc > 1 ? argv[1] : "store-versions";
  const std::string owner = argc > 2 ? argv[2] : "anna";
  // Only corporate documents whose names end in ".kdf" are read by their exact timestamp.
  const std::string name = argc > 3 ? argv[3] : "report.kdf";

  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error || !vu_storage::initRootStorage(folder.string(), true, false)) {
    std::cerr << "cannot open a storage in " << folder << ": is the folder writable?\n";
    return 1;
  }

  for (const long version : {20240131L, 20240229L, 20240331L}) {
    if (!store(owner, name, version, "the report of " + std::to_string(version) + "\n")) {
      std::cerr << "cannot store " << name << " of " << version << ": is the disk of " << folder
                << " full?\n";
      return 1;
    }
  }

  try {
    const long latest = vu_storage::getLattestTimestamp(owner, name, STG::CorporateRepository);
    std::cout << "the latest version of " << name << " is " << latest << "\n";
    return latest == 20240331 && std::cout.flush() ? 0 : 1;
  } catch (const vu_file_except& failure) {
    std::cerr << "cannot read the index of " << name << ": " << failure.what() << "\n";
    return 1;
  }
}
