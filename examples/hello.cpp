// Stores a document and reads it back: hello_storage [FOLDER]
#include <filesystem>
#include <iostream>
#include <string>

#include "vu_storage.h"

int main(int argc, char** argv) {
  const std::filesystem::path root = argc > 1 ? argv[1] : "hello-storage";
  std::error_code error;
  std::filesystem::create_directories(root, error);
  if (error || !vu_storage::initRootStorage(root.string(), true, true)) {
    std::cerr << "no storage in " << root << "\n";
    return 1;
  }

  vu_storage storage;
  vu_file file;
  storage.OpenWrite(file, "anna", "greeting.kdf", STG::CorporateRepository, true, 20240501);
  if (!file.is_open()) {
    std::cerr << "greeting.kdf cannot be written; is " << root << " writable?\n";
    return 1;
  }
  storage.Write(file, "Hello, storage!\n");
  storage.Close(file);

  storage.OpenRead(file, "anna", "greeting.kdf", STG::CorporateRepository, 20240501);
  std::string text;
  if (file.is_open()) storage.Read(file, text, 0);
  storage.Close(file);
  std::cout << text;
  return text == "Hello, storage!\n" ? 0 : 1;
}
