// locked_document_storage [FOLDER] opens a document that may be locked, and never waits for ever.
#include <chrono>
#include <filesystem>
#include <iostream>
#include <string>
#include <thread>

#include "vu_host.h"
#include "vu_storage.h"

enum class opened { yes, locked, missing };

// Opens a document for reading within a time. OpenRead() would wait without limit.
opened open_within(vu_file& file, const std::string& owner, const std::string& name, long timestamp,
                   std::chrono::milliseconds patience) {
  const auto end = std::chrono::steady_clock::now() + patience;
  vu_storage storage;
  std::string folder;
  std::string physical;
  // This question waits for writers of the index, who hold it for a moment only.
  if (!storage.IsFileExist(owner, name, STG::CorporateRepository, timestamp, &folder, &physical))
    return opened::missing;
  for (;;) {
    file = vu_file(folder, physical);
    bool refused = false;
    // True also for a refused lock: the file is open then, and nobody may use it.
    if (!file.try_open(vu_file::o_read, refused, true)) return opened::missing;
    if (!refused) return opened::yes;
    file.close();
    if (std::chrono::steady_clock::now() >= end) return opened::locked;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

int main(int argc, char** argv) {
  const std::filesystem::path root = argc > 1 ? argv[1] : "locked-document";
  std::error_code error;
  std::filesystem::create_directories(root, error);
  // Warnings and errors to the standard error output, the last one of each thread kept.
  static vu_host::problem_sink problems;
  vu_host::install({&problems, nullptr, nullptr, nullptr});
  if (error || !vu_storage::initRootStorage(root.string(), true, false)) return 1;

  vu_storage storage;
  vu_file writer;
  vu_host::problem_sink::clear();
  storage.OpenWrite(writer, "anna", "plan.kdf", STG::CorporateRepository, true, 7);
  if (!writer.is_open()) {
    std::cerr << "plan.kdf cannot be written: " << vu_host::problem_sink::last() << "\n";
    return 1;
  }
  storage.Write(writer, "all of the plan");

  vu_file reader;
  using std::chrono::milliseconds;
  const bool gave_up =
      open_within(reader, "anna", "plan.kdf", 7, milliseconds(200)) == opened::locked;
  std::cout << (gave_up ? "locked: gave up after 200 ms\n" : "not locked\n");
  storage.Close(writer);

  if (open_within(reader, "anna", "plan.kdf", 7, milliseconds(200)) != opened::yes) return 1;
  std::string text;
  storage.Read(reader, text, 0);
  storage.Close(reader);
  std::cout << "then read: " << text << "\n";
  return gave_up && text == "all of the plan" ? 0 : 1;
}
