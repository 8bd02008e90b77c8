// Writes a document to the standard output: the named version, or the latest one.
// read_document_storage FOLDER OWNER NAME [VERSION]      exit code 3: the document does not exist
#include <charconv>
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <string>
#include <string_view>
#include <system_error>

#include "vu_storage.h"

namespace {

int read_document(const std::string& owner, const std::string& name, long version) {
  // This check creates no folder and no entry.
  if (!vu_storage().IsFileExist(owner, name, STG::CorporateRepository, version, nullptr, nullptr)) {
    std::cerr << owner << " has no " << name;
    if (version > 0) std::cerr << " of " << version;
    std::cerr << "\n";
    return 3;
  }
  vu_storage storage;
  vu_file file;
  storage.OpenRead(file, owner, name, STG::CorporateRepository, version);
  if (!file.is_open()) {
    // Another process removed it after the check, or the system refuses access; see the trace.
    std::cerr << "cannot open " << name << " of " << version << "\n";
    return 1;
  }
  // In pieces, so that a large document needs little memory.
  std::string piece;
  while (file.read(piece, 1 << 16) > 0) std::cout << piece;
  storage.Close(file);
  return std::cout.flush() ? 0 : 1;
}

// @return whether the text is a version: digits only, at most 2147483647.
bool is_version(std::string_view text, std::int32_t& version) {
  const char* const end = text.data() + text.size();
  const auto [stop, failed] = std::from_chars(text.data(), end, version);
  return failed == std::errc() && stop == end && version >= 0;
}

}  // namespace

int main(int argc, char** argv) try {
  std::int32_t version = 0;
  if (argc < 4 || argc > 5 || (argc > 4 && !is_version(argv[4], version))) {
    std::cerr << "usage: read_document_storage FOLDER OWNER NAME [VERSION]\n"
                 "VERSION is a number from 0 to 2147483647\n";
    return 2;
  }
  const std::string folder = argv[1];
  const std::string owner = argv[2];
  const std::string name = argv[3];
  // initRootStorage() would create a new storage; a reader needs an existing one.
  if (!std::filesystem::is_directory(std::filesystem::path(folder) / "storage")) {
    std::cerr << "there is no storage in " << folder << "\n";
    return 3;
  }
  if (!vu_storage::initRootStorage(folder, true, false)) {
    std::cerr << "cannot open the storage in " << folder << "\n";
    return 1;
  }

  // Also for a named version: this call throws if the index cannot be read. IsFileExist() would
  // report that the document does not exist.
  const long latest = vu_storage::getLattestTimestamp(owner, name, STG::CorporateRepository);
  return read_document(owner, name, argc > 4 ? version : latest);
} catch (const vu_file_except& failure) {
  std::cerr << "cannot read the index of " << argv[3] << ": " << failure.what() << "\n";
  return 1;
} catch (const std::exception& failure) {
  std::cerr << "read_document: " << failure.what() << "\n";
  return 1;
}
