// Runs one operation on a folder with ENTRIES entries: storage_operations OPERATION ENTRIES FOLDER
//
// scripts/bench-instructions.sh counts the instructions of measured() under callgrind;
// strace shows the system calls between the two calls of getppid().
//
//   exists   STGIndex::exists of the entry in the middle
//   load     STGIndex::remove of a name that does not exist: loads the index and changes nothing
//   rewrite  STGIndex::updateIndexFile: loads the index, merges it and writes it back
//   create   STGIndex::create of a new name in the middle
//   remove   STGIndex::remove of the entry in the middle
//   last     STGIndex::lastVersion of the entry in the middle
//   list     STGIndex::plValues
//   keep     STGIndex::cleanOutOfDateOutput that keeps everything
//   empty    the same, but it removes everything
//   adopt    STGIndex::updateIndexFile of the files alone
//   map      the cost of the result of "list" alone: a map of the same names, inserted in order

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "lab/bench/folder.h"
#include "stg_index.h"

constexpr unsigned long kLongAgo = 1000000;  // seconds

extern "C" [[gnu::noinline]] void measured(const std::function<void()>& operation) { operation(); }

int main(int argc, char** argv) {
  const std::size_t entries = argc == 4 ? std::strtoul(argv[2], nullptr, 10) : 0;
  if (entries == 0) {
    std::fputs("usage: storage_operations OPERATION ENTRIES FOLDER\n", stderr);
    return 2;
  }
  const bench::Folder folder(argv[3], entries);
  const std::string& path = folder.path();
  const std::string logical = folder.logical(entries / 2);
  const long timestamp = folder.timestamp(entries / 2);
  std::string physical;
  long latest = 0;
  STGIndex::NameMap names;
  STGIndex::AgeMap ages;
  std::vector<std::pair<std::string, std::string>> sorted;
  for (std::size_t i = 0; i < entries; ++i) sorted.emplace_back(folder.file(i), folder.logical(i));
  std::sort(sorted.begin(), sorted.end());
  const std::map<std::string, std::function<void()>> operations = {
      {"exists", [&] { STGIndex::exists(path, logical, timestamp, physical); }},
      {"load", [&] { STGIndex::remove(path, "nothing.kdb", 1); }},
      {"rewrite", [&] { STGIndex::updateIndexFile(path); }},
      {"create", [&] { STGIndex::create(path, logical, 5); }},
      {"remove", [&] { STGIndex::remove(path, logical, timestamp); }},
      {"last", [&] { STGIndex::lastVersion(path, logical, latest); }},
      {"list", [&] { STGIndex::plValues(path, names); }},
      {"keep", [&] { STGIndex::cleanOutOfDateOutput(path, kLongAgo, ages, false); }},
      {"empty", [&] { STGIndex::cleanOutOfDateOutput(path, 0, ages, false); }},
      {"adopt", [&] { STGIndex::updateIndexFile(path); }},
      {"map",
       [&] {
         for (const auto& [file, name] : sorted)
           names.emplace_hint(names.end(), std::string_view(file), std::string_view(name));
       }},
  };
  const auto operation = operations.find(argv[1]);
  if (operation == operations.end()) {
    std::fprintf(stderr, "error: there is no operation '%s'\n", argv[1]);
    return 2;
  }
  if (operation->first == "adopt") std::filesystem::remove(path + "/index.dat");
  static_cast<void>(::getppid());
  measured(operation->second);
  static_cast<void>(::getppid());
  return 0;
}
