// Serves a sub-part of a document three times: generates the missing sub-part, reads it, and reads
// a newer preload copy. sub_parts_and_preload_storage [FOLDER]
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>

#include "vu_storage.h"

namespace fs = std::filesystem;
namespace {
const std::string owner = "anna";
const std::string document = "report.kdc";
const std::string part = "summary.html";

bool write_part(const std::string& rendition, const std::string& text) {
  vu_storage storage;
  vu_file file;
  storage.OpenWriteSubPart(file, owner, document, rendition, part, 0);
  const bool done = file.is_open() && file.write(text) == static_cast<int>(text.size());
  storage.Close(file);
  return done;
}

// A server does this for each request. @return the sub-part; empty when it cannot be written.
std::string serve_part() {
  vu_storage storage;
  vu_file file;
  std::string text;
  storage.OpenReadSubPart(file, "a reader", owner, document, "html@page", part, 0);
  if (file.is_open()) {
    storage.Read(file, text, 0);
    storage.Close(file);
    return text;
  }
  // The sub-part is missing, or older than its document: generate and store it for later requests.
  text = "<p>generated from " + document + "</p>\n";
  return write_part("html@page", text) ? text : "";
}

}  // namespace

int main(int argc, char** argv) try {
  const fs::path folder = argc > 1 ? argv[1] : "sub-parts";
  fs::create_directories(folder);
  if (!vu_storage::initRootStorage(folder.string(), true, false))
    throw std::runtime_error("cannot open a storage in " + folder.string());
  // Storing a document removes the sub-parts of its old text.
  const fs::path source = folder / "source.txt";
  if (!(std::ofstream(source, std::ios::binary) << "figures\n").flush() ||
      !vu_storage::copyToStorage(source.string(), owner, document, STG::CorporateRepository, true,
                                 0))
    throw std::runtime_error("cannot store " + document + ": is the folder writable?");
  std::cout << "first:  " << serve_part() << "second: " << serve_part();
  // copyFile() keeps the modification time: the preload copy is newer and replaces the sub-part.
  const fs::path loaded = folder / "loaded.html";
  if (!(std::ofstream(loaded, std::ios::binary) << "<p>loaded ahead of time</p>\n").flush())
    throw std::runtime_error("cannot write " + loaded.string());
  fs::last_write_time(loaded, fs::last_write_time(loaded) + std::chrono::minutes(1));
  std::string dir, file;
  if (!vu_storage().IsFileExist(owner, document, STG::CorporateRepository, 0, &dir, &file))
    throw std::runtime_error("cannot find " + document);
  const std::string preload =
      dir + "\\" + file + "_" + vu_storage::getTdcTimeStamp() + "\\html\\preload";
  if (!vu_file::createDir(preload) ||
      !vu_file::copyFile(loaded.string(), preload + "\\" + part, true))
    throw std::runtime_error("cannot write the preload copy in " + preload);
  const std::string third = serve_part();
  std::cout << "third:  " << third;
  return third == "<p>loaded ahead of time</p>\n" && std::cout.flush() ? 0 : 1;
} catch (const vu_file_except& failure) {
  std::cerr << "sub_parts_and_preload: " << failure.what() << "\n";
  return 1;
} catch (const std::exception& failure) {
  std::cerr << "sub_parts_and_preload: " << failure.what() << "\n";
  return 1;
}
