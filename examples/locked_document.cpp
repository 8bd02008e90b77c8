// Opens a document and gives up after a time limit when the document or its index is locked.
// locked_document_storage [FOLDER]
#include <chrono>
#include <filesystem>
#include <iostream>
#include <string>
#include <thread>

#include "vu_host.h"
#include "vu_storage.h"

enum class opened { yes, locked, missing };

// Opens a file for reading without waiting for its lock.
opened open_at_once(vu_file& file, const std::string& folder, const std::string& name) {
  file = vu_file(folder, name);
  bool refused = false;
  // try_open() also returns true when the lock is refused: the file is open, but must not be read.
  if (!file.try_open(vu_file::o_read, refused, true)) return opened::missing;
  if (refused) file.close();
  return refused ? opened::locked : opened::yes;
}

// Opens a document of anna for reading, or gives up after 200 ms. OpenRead() has no limit.
opened open_in_time(vu_file& file, const std::string& name, long timestamp) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(200);
  constexpr auto kType = STG::CorporateRepository;
  std::string folder, physical;
  if (!vu_storage::createUserOrDomainNameDirectory("anna", name, kType, folder, false))
    return opened::missing;
  for (;;) {
    // IsFileExist() waits for writers of the index, so test its lock first. It still waits for one
    // that locks it after this test. (C interface: vu_settings::wait_ms limits it.)
    vu_file index;
    opened result = open_at_once(index, folder, "index.dat");
    if (result == opened::yes) index.close();
    if (result != opened::locked) {
      if (!vu_storage().IsFileExist("anna", name, kType, timestamp, nullptr, &physical))
        return opened::missing;
      result = open_at_once(file, folder, physical);
    }
    if (result != opened::locked || std::chrono::steady_clock::now() >= end) return result;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

int main(int argc, char** argv) try {
  const std::filesystem::path root = argc > 1 ? argv[1] : "locked-document";
  std::filesystem::create_directories(root);
  static vu_host::problem_sink problems;  // prints warnings and errors
  vu_host::install({&problems, nullptr, nullptr, nullptr});
  if (!vu_storage::initRootStorage(root.string(), true, false)) return 1;
  vu_storage storage;
  vu_file held, reader;
  std::string folder, text;
  storage.OpenWrite(held, "anna", "plan.kdf", STG::CorporateRepository, true, 7);
  if (!held.is_open()) return 1;
  storage.Write(held, "all of the plan");
  const bool gave_up = open_in_time(reader, "plan.kdf", 7) == opened::locked;
  std::cout << (gave_up ? "locked: gave up after 200 ms\n" : "not locked\n");
  storage.Close(held);
  storage.IsFileExist("anna", "plan.kdf", STG::CorporateRepository, 7, &folder, nullptr);
  held = vu_file(folder, "index.dat");
  held.open(vu_file::o_append);
  const bool again = open_in_time(reader, "plan.kdf", 7) == opened::locked;
  std::cout << (again ? "index locked: gave up after 200 ms\n" : "index not locked\n");
  held.close();
  if (open_in_time(reader, "plan.kdf", 7) != opened::yes) return 1;
  storage.Read(reader, text, 0);
  storage.Close(reader);
  std::cout << "then read: " << text << "\n";
  return gave_up && again && text == "all of the plan" && std::cout.flush() ? 0 : 1;
} catch (const vu_file_except& failure) {
  std::cerr << "locked_document: " << failure.what() << "\n";
  return 1;
} catch (const std::exception& failure) {
  std::cerr << "locked_document: " << failure.what() << "\n";
  return 1;
}
