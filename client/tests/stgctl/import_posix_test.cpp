// Imports that are killed, and disks that are full.
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <optional>
#include <thread>

#include "client/tests/stgctl/fixture.h"

namespace {

using namespace std::chrono_literals;

/// Files that are written meanwhile cannot grow beyond a size, as on a disk that is full.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(::rlim_t most) {
    ::getrlimit(RLIMIT_FSIZE, &m_before);
    const ::rlimit limit = {most, m_before.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    // Ignored signals stay so in programs that are started; the write itself fails then.
    m_handler = std::signal(SIGXFSZ, SIG_IGN);
  }
  ~FileSizeLimit() {
    ::setrlimit(RLIMIT_FSIZE, &m_before);
    std::signal(SIGXFSZ, m_handler);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  ::rlimit m_before{};
  void (*m_handler)(int) = SIG_DFL;
};

/// A disk of a few megabytes that this process alone sees.
class SmallDisk {
 public:
  explicit SmallDisk(const std::string& folder) : m_folder(native(folder).string()) {
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("tmpfs", m_folder.c_str(), "tmpfs", 0, "size=3m,mode=0777") != 0)
      m_refusal = std::strerror(errno);
  }
  ~SmallDisk() {
    if (m_refusal.empty()) ::umount2(m_folder.c_str(), MNT_DETACH);
  }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

  /// Empty when the disk is there.
  const std::string& refusal() const { return m_refusal; }

 private:
  std::string m_folder;
  std::string m_refusal;
};

}  // namespace

class ClientImportFaults : public Client {
 protected:
  ClientImportFaults() {
    init();
    make_folder(other_root());
  }
  std::string other_root() const { return scratch().path("other"); }
  std::string journal() const { return other_root() + "\\storage.import"; }
  std::string folder() const { return shell_path(scratch().path("export")); }
  std::vector<std::string> import_arguments() const {
    return {"import", folder(), "--yes", "--json", "--root", shell_path(other_root())};
  }
  Json compare(int code) {
    const outcome result = run({"compare", folder(), "--json", "--root", shell_path(other_root())});
    EXPECT_EQ(result.code, code) << result.err << result.out;
    return Json::parse(lines_of(result.out).back());
  }
  void init_other() {
    ASSERT_EQ(run({"init", "--yes", "--root", shell_path(other_root())}).code, 0);
  }
  /// Each document there is whole: one with a line, and one whose line had not been written yet.
  void expect_whole_files(std::size_t size) {
    const outcome found = run(
        {"find", "--area", "docs", "--long", "--json", "--root", shell_path(other_root())});
    for (const std::string& line : lines_of(found.out)) {
      const Json entry = Json::parse(line);
      ASSERT_NE(entry.at("state"), "missing") << line;
      ASSERT_EQ(entry.at("bytes"), size) << line;
    }
  }
  /// Documents of a size, each with a part and, beside them, a list.
  void fill(int count, std::size_t size) {
    std::vector<std::string> arguments = {"put"};
    for (int i = 0; i < count; ++i) {
      const std::string name = "d" + std::to_string(i) + ".kdc";
      arguments.push_back(source(name, std::string(size, static_cast<char>('a' + i % 26))));
    }
    ASSERT_EQ(change(arguments).code, 0);
    const std::string part = physical("docs", "d0.kdc") + "_\\html\\page";
    make_folder(part);
    write_file(part + "\\1", std::string(size, 'p'));
    make_folder(storage() + "\\list\\anna");
    write_file(storage() + "\\list\\anna\\l", std::string(size, 'l'));
    ASSERT_EQ(on_tree({"export", folder()}).code, 0);
  }
};

TEST_F(ClientImportFaults, AKilledOneIsSaidAgain) {
  constexpr int kDocuments = 24;
  constexpr std::size_t kBytes = 700'000;
  fill(kDocuments, kBytes);
  init_other();
  int kills = 0;
  bool is_left = false;
  // Each run is killed a little later, wherever in its work it is by then.
  for (std::chrono::milliseconds moment = 0ms; moment < 2s; moment += moment / 2 + 1ms) {
    {
      const running_program importing(import_arguments());
      const auto begin = std::chrono::steady_clock::now();
      const auto alarm = begin + 5s;
      while (!file_exists(journal()) && std::chrono::steady_clock::now() < alarm) {
      }
      std::this_thread::sleep_for(moment);
      // It has ended by itself.
      if (!file_exists(journal())) break;
    }
    ++kills;
    is_left = is_left || file_exists(journal());
    expect_whole_files(kBytes);
  }
  EXPECT_GT(kills, 0);
  EXPECT_TRUE(is_left);
  const outcome last = run(import_arguments());
  EXPECT_EQ(last.code, 0) << last.err << last.out;
  EXPECT_EQ(compare(0).at("equal"), kDocuments + 2);
  EXPECT_FALSE(file_exists(journal()));
}

TEST_F(ClientImportFaults, WhatAKilledOneHadCompletedIsPendingNoMore) {
  fill(1, 10);
  init_other();
  ASSERT_EQ(run(import_arguments()).code, 0);
  ASSERT_FALSE(file_exists(journal()));
  // As if it had been killed before it could say that the document is complete.
  write_file(journal(), "\n+docs/616e6e61/64302e6b6463/0\n");
  const outcome again = run(import_arguments());
  EXPECT_EQ(again.code, 0) << again.err << again.out;
  EXPECT_FALSE(file_exists(journal()));
}

TEST_F(ClientImportFaults, TwoAtOnceDoNotMeet) {
  fill(1, 10);
  init_other();
  const int held = ::open(native(journal()).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  struct ::flock whole {};
  whole.l_type = F_WRLCK;
  ASSERT_EQ(::fcntl(held, F_OFD_SETLK, &whole), 0);
  const outcome refused = run(import_arguments());
  EXPECT_EQ(refused.code, 11);
  EXPECT_NE(refused.err.find("another import"), std::string::npos) << refused.err;
  ::close(held);
  EXPECT_EQ(run(import_arguments()).code, 0);
}

TEST_F(ClientImportFaults, FilesThatCannotBeWrittenLeaveNothingBehind) {
  constexpr int kDocuments = 3;
  fill(kDocuments, 300'000);
  ASSERT_EQ(change({"put", source("small.kdc", "s")}).code, 0);
  std::filesystem::remove_all(native(folder()));
  ASSERT_EQ(on_tree({"export", folder()}).code, 0);
  init_other();
  {
    const FileSizeLimit limit(100'000);
    const outcome result = run(import_arguments());
    EXPECT_EQ(result.code, 5) << result.err << result.out;
    const Json sums = Json::parse(lines_of(result.out).back());
    EXPECT_EQ(sums.at("done"), 1);
    EXPECT_EQ(sums.at("failed"), kDocuments + 2);
  }
  const Json difference = compare(4);
  EXPECT_EQ(difference.at("equal"), 1);
  EXPECT_EQ(difference.at("codes").size(), 1U);
  EXPECT_EQ(difference.at("codes").at("not-in-tree"), kDocuments + 2);
  EXPECT_FALSE(file_exists(journal()));
  const outcome check = run({"check", "--root", shell_path(other_root())});
  EXPECT_EQ(check.code, 0) << check.out;
  EXPECT_EQ(run(import_arguments()).code, 0);
  EXPECT_EQ(compare(0).at("equal"), kDocuments + 3);
}

TEST_F(ClientImportFaults, AFullDiskLeavesNothingHalfWritten) {
  constexpr int kDocuments = 10;
  fill(kDocuments, 500'000);
  const SmallDisk disk(other_root());
  if (!disk.refusal().empty())
    GTEST_SKIP() << "a small disk cannot be mounted here: " << disk.refusal();
  init_other();
  const outcome result = run(import_arguments());
  EXPECT_EQ(result.code, 5) << result.err << result.out;
  const Json difference = compare(4);
  EXPECT_GT(difference.at("equal"), 0);
  EXPECT_EQ(difference.at("codes").size(), 1U);
  EXPECT_EQ(difference.at("codes").at("not-in-tree"),
            kDocuments + 2 - difference.at("equal").get<int>());
  EXPECT_EQ(run({"check", "--root", shell_path(other_root())}).code, 0);
}

TEST_F(ClientImportFaults, AnExportThatFindsNoRoomHasNoManifest) {
  fill(2, 300'000);
  std::filesystem::remove_all(native(folder()));
  {
    const FileSizeLimit limit(100'000);
    const outcome result = on_tree({"export", folder()});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.err.find("not finished"), std::string::npos) << result.err;
  }
  EXPECT_FALSE(file_exists(folder() + "\\manifest.jsonl"));
  EXPECT_EQ(run(import_arguments()).code, 10);
  init_other();
  EXPECT_EQ(run(import_arguments()).code, 1);
  EXPECT_EQ(on_tree({"export", folder(), "--yes"}).code, 0);
  EXPECT_EQ(run(import_arguments()).code, 0);
  EXPECT_EQ(compare(0).at("equal"), 4);
}

TEST_F(ClientImportFaults, NamesOfAnyBytesSurvive) {
  const std::vector<std::string> names = {"plain.kdc",
                                          "Plain.kdc",
                                          "PLAIN.KDC",
                                          "bad\xff\xfe.kdc",
                                          "colon: 5.kdc",
                                          "con.kdc",
                                          "tab\there.kdc",
                                          "ends in a dot.",
                                          "\xc3\x84.kdc",
                                          "\xc3\xa4.kdc",
                                          "%63on.kdc",
                                          "quote\"<>|.kdc",
                                          std::string(300, 'l') + ".kdc",
                                          std::string(300, 'l') + "2.kdc"};
  for (const std::string& owner :
       {std::string("anna"), std::string("Anna"), std::string("o\xff:")}) {
    for (const std::string& name : names) {
      ASSERT_EQ(
          on_tree({"put", source("x", "bytes of " + name), "--as", name, "--owner", owner, "--yes"})
              .code,
          0)
          << name;
    }
  }
  ASSERT_EQ(on_tree({"export", folder()}).code, 0);
  for (const auto& each : std::filesystem::recursive_directory_iterator(native(folder()))) {
    const std::string name = each.path().filename().string();
    EXPECT_LE(name.size(), 100U);
    EXPECT_EQ(name.find_first_of("<>:\"|?*\\\xff\xfe\t"), std::string::npos) << name;
  }
  init_other();
  EXPECT_EQ(run(import_arguments()).code, 0);
  EXPECT_EQ(compare(0).at("equal"), names.size() * 3);
  const std::string manifest = read_file(folder() + "\\manifest.jsonl");
  EXPECT_NE(manifest.find("\"name_hex\":\"626164fffe2e6b6463\""), std::string::npos);
}
