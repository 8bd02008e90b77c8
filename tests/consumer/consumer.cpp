// A program outside of this project. It uses only the installed headers and the installed library.
// Prints "consumer: passed".
//
//  consumer FOLDER
#include <stg_index.h>
#include <vu_fileutf8.h>
#include <vu_host.h>
#include <vu_storage.h>

#include <iostream>
#include <string>
#include <string_view>

namespace {

// A class of this program that implements an interface of the library.
class Counter final : public vu_host::trace_sink {
 public:
  bool wants(vu_host::trace_level) const noexcept override { return false; }
  bool wants(vu_host::trace_event) const noexcept override { return true; }
  void scope_begin(const vu_host::trace_site&, vu_host::trace_level,
                   std::string_view) noexcept override {}
  void scope_end(const vu_host::trace_site&, vu_host::trace_level) noexcept override {}
  void scope_message(const vu_host::trace_site&, std::string_view) noexcept override {}
  void record(const vu_host::trace_site&, vu_host::trace_level,
              std::string_view) noexcept override {}
  void event(const vu_host::trace_site&, vu_host::trace_event, std::string_view) noexcept override {
    ++events;
  }

  int events = 0;
};

int failures = 0;

void expect(bool good, const char* what) {
  if (good) return;
  std::cerr << "consumer: failed: " << what << "\n";
  ++failures;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: consumer FOLDER\n";
    return 2;
  }
  static Counter counter;
  vu_host::services services;
  services.trace = &counter;
  vu_host::install(services);

  const std::string root = argv[1];
  expect(vu_file::createDir(root), "the root is made");
  expect(vu_storage::initRootStorage(root, true, true), "the storage is initialised");
  expect(!vu_storage::initRootStorage(root, true, true), "a second time it is refused");
  expect(counter.events > 0, "the refusal reaches the program's own sink");

  vu_storage storage;
  vu_file file;
  storage.OpenWrite(file, "anna", "note.kdf", STG::CorporateRepository, true, 7);
  storage.Write(file, "text");
  storage.Close(file);
  std::string text;
  storage.OpenRead(file, "anna", "note.kdf", STG::CorporateRepository, 7);
  if (file.is_open()) storage.Read(file, text, 0);
  storage.Close(file);
  expect(text == "text", "what was stored is read");

  // Exceptions that leave the library keep their types.
  bool caught = false;
  try {
    vu_file(root, "missing.txt").open(vu_file::o_read);
  } catch (const vu_file_except& error) {
    caught = error.what() == "throw exception on open";
  }
  expect(caught, "a vu_file_except is caught by its name");
  caught = false;
  try {
    const ucs2string wide(vu_utf8string("\xff"));
  } catch (const std::exception&) {
    caught = true;
  }
  expect(caught, "a vu_i18n_except is caught by its base");

  STGIndex::NameMap names;
  STGIndex::plValues(root, names);
  expect(vu_file::recurseRemoveDir(root), "everything is removed again");
  std::cout << (failures == 0 ? "consumer: passed\n" : "consumer: failed\n");
  return failures == 0 ? 0 : 1;
}
