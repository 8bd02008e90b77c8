// Stores a document and reads it back: hello_classes_storage [FOLDER]
#include <filesystem>
#include <iostream>
#include <string>

#include "vu_storage.h"

int main(int argc, char** argv) {
  const std::filesystem::path root = argc > 1 ? argv[1] : "hello-classes-storage";
  std::error_code error;
  std::filesystem::create_directories(root, error);
  if (error || !vu_storage::initRootStorage(root.string(), true, true)) {
    std::cerr << "cannot open a storage in " << root << ": is the folder writable?\n";
    return 1;
  }

  vu_storage storage;
  vu_file file;
  storage.OpenWrite(file, "anna", "greeting.kdf", STG::CorporateRepository, true, 20240501);
  if (!file.is_open()) {
    std::cerr << "cannot write greeting.kdf: is " << root << " writable?\n";
    return 1;
  }
  const std::string greeting = "Hello, storage!\n";
  // write() returns fewer bytes when, for example, the disk is full.
  const bool is_whole = file.write(greeting) == static_cast<int>(greeting.size());
  storage.Close(file);
  if (!is_whole) {
    std::cerr << "greeting.kdf is incomplete: free disk space and store it again\n";
    return 1;
  }

  storage.OpenRead(file, "anna", "greeting.kdf", STG::CorporateRepository, 20240501);
  std::string text;
  if (file.is_open()) storage.Read(file, text, 0);
  storage.Close(file);
  std::cout << text;
  return text == greeting && std::cout.flush() ? 0 : 1;
}
