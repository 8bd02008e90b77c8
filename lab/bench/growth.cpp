// Measures the time per operation for growing numbers of documents: storage_growth FOLDER DATA
//
// Two trees grow below FOLDER, in the library's layout. One has 1,000 to 1,000,000 documents of one
// owner in the hash buckets. The other is a mail folder of 100 to 100,000 documents. The program
// creates empty files and writes "index.dat" and the counters directly. At each size it checks a
// sample with the library: the document is found under its file name, and the list has the right
// length. It times each operation in milliseconds and takes the best of several calls, because
// other work can interrupt a call. DATA gets a block of lines for each tree and operation, for
// growth.gp:
//
//   documents  milliseconds
//
// Operations (vu_storage, corporate documents and mail, synchronisation switch on):
//
//   open     OpenRead + Read + Close of an arbitrary document
//   latest   getLattestTimestamp of an arbitrary document
//   list     getFileListFromIndexFile of its folder
//   write    OpenWrite + Write + Close of a new document
//   replace  OpenWrite + Write + Close of an arbitrary document
//   remove   RemoveFile of the new document

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "lab/bench/bare.h"
#include "lab/bench/folder.h"
#include "vu_storage.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kOwner = "owner";
constexpr long kTimestamp = 1700000000;
constexpr int kCalls = 11;

std::string logical_name(std::size_t document) {
  char text[32];
  std::snprintf(text, sizeof text, "Report %07zu.kdf", document);
  return text;
}

/// Documents of one owner in one area, created without the library.
class Tree {
 public:
  Tree(std::string name, STG::RepositoryType type, long timestamp)
      : m_name(std::move(name)), m_type(type), m_timestamp(timestamp) {}

  const std::string& name() const { return m_name; }
  STG::RepositoryType type() const { return m_type; }
  long timestamp() const { return m_timestamp; }
  std::size_t documents() const { return m_documents; }

  /// The folder of a document, as the library computes it.
  std::string folder_of(const std::string& logical) const {
    std::string folder;
    vu_storage::createUserOrDomainNameDirectory(kOwner, logical, m_type, folder, true);
    std::replace(folder.begin(), folder.end(), '\\', '/');
    return folder;
  }

  /// Adds documents up to this number, and writes the indexes.
  void grow_to(std::size_t documents) {
    for (; m_documents < documents; ++m_documents) {
      const std::string logical = logical_name(m_documents);
      const std::string folder = folder_of(logical);
      Entries& entries = m_folders[folder];
      const std::string stored = bench::stored_name(entries.size() + 1);
      entries.emplace_back(bench::key_of(logical, m_timestamp), stored);
      const bare::File file(folder + "/" + stored + ".kdf", bare::File::Mode::kReadWriteCreate);
    }
    for (auto& [folder, entries] : m_folders) {
      std::sort(entries.begin(), entries.end());
      std::string text;
      for (const auto& [key, stored] : entries)
        text.append(key).append("/").append(stored).append("\n");
      bench::put_file(folder + "/index.dat", text);
      bench::put_file(folder + "/index", bench::stored_name(entries.size()));
    }
  }

  std::size_t entries_of(const std::string& folder) const { return m_folders.at(folder).size(); }

 private:
  using Entries = std::vector<std::pair<std::string, std::string>>;

  std::string m_name;
  STG::RepositoryType m_type;
  long m_timestamp;
  std::size_t m_documents = 0;
  std::map<std::string, Entries> m_folders;
};

/// @return seconds.
double time_of(const std::function<void()>& work) {
  const Clock::time_point start = Clock::now();
  work();
  return std::chrono::duration<double>(Clock::now() - start).count();
}

void expect(bool holds, const char* what) {
  if (!holds) bare::broken("the library does not see the tree as it is:", what);
}

using Times = std::map<std::string, std::vector<double>>;

/// Runs each operation once on a document, records its time and checks the results.
void measure_once(const Tree& tree, std::size_t document, Times& times) {
  const std::string logical = logical_name(document);
  const std::string folder = tree.folder_of(logical);
  vu_storage storage;
  const auto timed = [&](const char* operation, const std::function<void()>& work) {
    times[operation].push_back(time_of(work));
  };

  timed("open", [&] {
    vu_file file;
    std::string text;
    storage.OpenRead(file, kOwner, logical, tree.type(), tree.timestamp());
    expect(file.is_open(), "a document that does not open");
    storage.Read(file, text, 0);
    storage.Close(file);
  });
  timed("latest", [&] {
    const long latest = vu_storage::getLattestTimestamp(kOwner, logical, tree.type());
    expect(latest == tree.timestamp(), "a wrong latest timestamp");
  });
  timed("list", [&] {
    std::vector<std::string> physical;
    const auto names = vu_storage::getFileListFromIndexFile(folder, physical, nullptr);
    expect(names.size() == tree.entries_of(folder), "a list of another length");
  });
  const auto write = [&](const std::string& name) {
    vu_file file;
    storage.OpenWrite(file, kOwner, name, tree.type(), true, tree.timestamp());
    storage.Write(file, "a small document");
    storage.Close(file);
  };
  timed("replace", [&] { write(logical); });
  // Finds a new name that belongs in the same folder.
  std::string added;
  for (int i = 0; added.empty() || tree.folder_of(added) != folder; ++i)
    added = "New " + std::to_string(i) + " " + logical;
  timed("write", [&] { write(added); });
  timed("remove", [&] {
    expect(vu_storage::RemoveFile(kOwner, added, tree.type(), tree.timestamp()), "a removal");
  });
}

double best(const std::vector<double>& values) {
  return *std::min_element(values.begin(), values.end());
}

void measure(Tree& tree, const std::vector<std::size_t>& sizes, std::ostream& data) {
  std::map<std::string, std::vector<std::pair<std::size_t, double>>> lines;
  for (const std::size_t size : sizes) {
    tree.grow_to(size);
    // Flushes the new files of the tree, so that the timed operations need not.
    ::sync();
    bench::Choice choice(size);
    Times times;
    for (int i = 0; i < kCalls; ++i) measure_once(tree, choice.next(), times);
    std::printf("%-8s %9zu", tree.name().c_str(), size);
    for (const auto& [operation, seconds] : times) {
      lines[operation].emplace_back(size, best(seconds) * 1e3);
      std::printf("  %s %.3f ms", operation.c_str(), best(seconds) * 1e3);
    }
    std::printf("\n");
    std::fflush(stdout);
  }
  for (const auto& [operation, points] : lines) {
    data << "\"" << tree.name() << ": " << operation << "\"\n";
    for (const auto& [size, milliseconds] : points) data << size << " " << milliseconds << "\n";
    data << "\n\n";
  }
}

int run(const std::string& folder, const std::string& data_file) {
  std::filesystem::remove_all(folder);
  std::filesystem::create_directories(folder);
  if (!vu_storage::initRootStorage(folder, true, true)) bare::broken("no storage in", folder);
  std::ofstream data(data_file);

  Tree buckets("buckets", STG::CorporateRepository, kTimestamp);
  measure(buckets, {1000, 3000, 10000, 30000, 100000, 300000, 1000000}, data);
  Tree mail("mail", STG::MailRepository, 0);
  measure(mail, {100, 300, 1000, 3000, 10000, 30000, 100000}, data);

  if (!data.flush()) {
    std::cerr << "error: cannot write " << data_file << "\n";
    return 1;
  }
  std::filesystem::remove_all(folder);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: storage_growth FOLDER DATA (FOLDER is emptied)\n";
    return 2;
  }
  try {
    return run(std::filesystem::absolute(argv[1]).string(), argv[2]);
  } catch (const std::exception& error) {
    std::cerr << "error: " << error.what() << "\n";
    return 1;
  }
}
