// Two processes use one document. The reader first tests whether the document is locked, then waits
// for the writer. two_processes_storage [FOLDER]
#include <Poco/Exception.h>
#include <Poco/Pipe.h>
#include <Poco/PipeStream.h>
#include <Poco/Process.h>

#include <filesystem>
#include <iostream>
#include <string>

#include "vu_storage.h"

namespace {

const std::string owner = "anna";
const std::string document = "plan.kdf";
const long version = 20240501;

// The second process: keeps the document open for writing until it receives a word.
int write() {
  vu_storage storage;
  vu_file file;
  storage.OpenWrite(file, owner, document, STG::CorporateRepository, true, version);
  if (!file.is_open()) return 1;
  std::cout << "open" << std::endl;
  std::string word;
  std::cin >> word;
  storage.Write(file, "all of the plan\n");
  storage.Close(file);  // flushes the file to the device, then releases the lock
  return 0;
}

// The first process: starts the second one and reads what it writes.
int read(const std::string& program, const std::string& folder) {
  Poco::Pipe to_writer;
  Poco::Pipe from_writer;
  const Poco::ProcessHandle writer =
      Poco::Process::launch(program, {folder, "write"}, &to_writer, &from_writer, nullptr);
  Poco::PipeInputStream answers(from_writer);
  std::string word;
  if (!(answers >> word) || word != "open") return 1;

  std::string dir;
  std::string name;
  vu_storage storage;
  if (!storage.IsFileExist(owner, document, STG::CorporateRepository, version, &dir, &name))
    return 1;
  vu_file file(dir, name);
  bool refused = false;
  if (!file.try_open(vu_file::o_read, refused, true) || !refused) return 1;
  std::cout << "another process writes the document\n";
  file.close();  // the file is open without a lock and must not be read

  Poco::PipeOutputStream(to_writer) << "go" << std::endl;
  std::string text;
  storage.OpenRead(file, owner, document, STG::CorporateRepository, version);  // waits for the lock
  if (file.is_open()) storage.Read(file, text, 0);
  storage.Close(file);
  const int ended = writer.wait();
  std::cout << "read: " << text;
  return ended == 0 && text == "all of the plan\n" ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) try {
  const std::string folder = argc > 1 ? argv[1] : "two-processes";
  std::filesystem::create_directories(folder);
  if (!vu_storage::initRootStorage(folder, true, false)) return 1;
  return argc > 2 ? write() : read(argv[0], folder);
} catch (const Poco::Exception& failure) {
  std::cerr << "two_processes: " << failure.displayText() << "\n";
  return 1;
} catch (const std::exception& failure) {
  std::cerr << "two_processes: " << failure.what() << "\n";
  return 1;
}
