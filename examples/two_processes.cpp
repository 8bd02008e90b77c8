// Two processes use one document. The reader first tests whether the document is locked, then waits
// for the writer. two_processes_storage [FOLDER]
#include <Poco/Exception.h>
#include <Poco/Pipe.h>
#include <Poco/PipeStream.h>
#include <Poco/Process.h>

#include <filesystem>
#include <iostream>
#include <stdexcept>
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
  if (!file.is_open()) throw std::runtime_error("cannot write " + document);
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
  if (!(answers >> word) || word != "open") throw std::runtime_error("the writer has ended");

  std::string dir, name;
  vu_storage storage;
  if (!storage.IsFileExist(owner, document, STG::CorporateRepository, version, &dir, &name))
    throw std::runtime_error("cannot find " + document);
  vu_file file(dir, name);
  bool refused = false;
  if (!file.try_open(vu_file::o_read, refused, true) || !refused)
    throw std::runtime_error(document + " is not locked by the writer");
  std::cout << "another process writes the document\n";
  file.close();  // the file is open without a lock and must not be read
  Poco::PipeOutputStream(to_writer) << "go" << std::endl;
  std::string text;
  storage.OpenRead(file, owner, document, STG::CorporateRepository, version);  // waits for the lock
  if (file.is_open()) storage.Read(file, text, 0);
  storage.Close(file);
  const int ended = writer.wait();
  if (ended != 0 || text != "all of the plan\n") throw std::runtime_error("read: " + text);
  std::cout << "read: " << text;
  return std::cout.flush() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) try {
  const std::string folder = argc > 1 ? argv[1] : "two-processes";
  std::filesystem::create_directories(folder);
  if (!vu_storage::initRootStorage(folder, true, false)) throw std::runtime_error("no storage");
  return argc > 2 ? write() : read(argv[0], folder);
} catch (const Poco::Exception& failure) {
  std::cerr << "two_processes: " << failure.displayText() << "\n";
  return 1;
} catch (const std::exception& failure) {
  std::cerr << "two_processes: " << failure.what() << "\n";
  return 1;
}
