// Locks between handles and between processes, and after the end of their owner. Also operations on
// a file that another program has open.

#include <algorithm>
#include <chrono>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "lab/kit/kernel/kernel.h"
#include "tests/support/process.h"
#include "vu_file.h"

namespace {

using namespace std::chrono_literals;

/// Holds a file's lock until a line arrives, or until it is killed.
int hold_a_lock(const std::vector<std::string>& args) {
  vu_file file(args.at(0));
  file.open(vu_file::o_append);
  say(file.is_locked() ? "locked" : "not locked");
  hear();
  return 0;
}
REGISTER_ROLE(hold_a_lock, hold_a_lock)

/// Truncates a file and writes two matching bytes, repeatedly, under its lock.
int write_pairs(const std::vector<std::string>& args) {
  say("begins");
  for (int i = 0; i < 150; ++i) {
    vu_file file(args.at(0));
    file.open(vu_file::o_truncate);
    const std::string letter(1, static_cast<char>('a' + i % 26));
    file.write(letter);
    ::Sleep(1);
    file.write(letter);
    file.close();
  }
  return 0;
}
REGISTER_ROLE(write_pairs, write_pairs)

}  // namespace

TEST_F(Kernel, ALockKeepsOtherHandlesFromReading) {
  settles(1, "a reader never sees a half-written file, even without a lock");
  NEEDS_A_REAL_KERNEL("a read of bytes that another handle has locked fails with error 33");
  write_file(path("file"), "0123456789");
  vu_file writer(path("file"));
  writer.open(vu_file::o_append);
  const RawFile reader(path("file"), GENERIC_READ, kAllShared);
  ASSERT_TRUE(reader.is_open());
  const DWORD code = reader.read_a_byte();
  found("the system says " + std::to_string(code));
  EXPECT_EQ(code, static_cast<DWORD>(ERROR_LOCK_VIOLATION));
  writer.close();
  EXPECT_EQ(reader.read_a_byte(), 0U);
}

TEST_F(Kernel, ALockKeepsOtherProcessesFromReading) {
  settles(2,
          "the same between two processes, and that readers with a lock see no half-written file");
  write_file(path("locked"), "0123456789");
  child_process holder("hold_a_lock", {path("locked")});
  ASSERT_TRUE(holder.hears("locked"));
  vu_file file(path("locked"));
  bool is_refused = false;
  file.try_open(vu_file::o_read, is_refused, true);
  EXPECT_TRUE(is_refused);
  file.close();
  DWORD code = 0;
  {
    const RawFile reader(path("locked"), GENERIC_READ, kAllShared);
    ASSERT_TRUE(reader.is_open());
    code = reader.read_a_byte();
  }
  holder.tell("end");
  EXPECT_EQ(holder.wait(), 0);

  write_file(path("pair"), "zz");
  child_process writer("write_pairs", {path("pair")});
  ASSERT_TRUE(writer.hears("begins"));
  int reads = 0;
  for (; reads < 150; ++reads) {
    vu_file reader(path("pair"));
    reader.open(vu_file::o_read);
    std::string pair;
    reader.read(pair, 0);
    ASSERT_EQ(pair.size(), 2U);
    ASSERT_EQ(pair[0], pair[1]) << "after " << reads << " reads";
  }
  EXPECT_EQ(writer.wait(), 0);
  found("a read without a lock: " + std::to_string(code) + "; " + std::to_string(reads) +
        " reads during writes, none of a half-written file");
  if (!is_emulated()) {
    EXPECT_EQ(code, static_cast<DWORD>(ERROR_LOCK_VIOLATION));
  }
}

TEST_F(Kernel, ALockEndsWithAProcessThatIsKilled) {
  settles(3, "how long others wait for the lock of a crashed program");
  write_file(path("file"), "x");
  child_process holder("hold_a_lock", {path("file")});
  ASSERT_TRUE(holder.hears("locked"));
  const auto begin = std::chrono::steady_clock::now();
  holder.kill();
  vu_file file(path("file"));
  file.open(vu_file::o_append);
  const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - begin;
  found(std::to_string(static_cast<int>(time.count())) + " ms after the kill");
  EXPECT_TRUE(file.is_locked());
  EXPECT_LT(time, 20s);
}

// ------------------------------------------------------------------------------------------------
// Programs that open files without sharing them, as some virus scanners and backups do.

namespace {

void collect_files(const std::string& folder, std::vector<std::string>& files) {
  WIN32_FIND_DATAA data = {};
  const HANDLE search = ::FindFirstFileA((folder + "\\*").c_str(), &data);
  if (search == INVALID_HANDLE_VALUE) return;
  do {
    const std::string name = data.cFileName;
    if (name == "." || name == "..") continue;
    if ((data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
      collect_files(folder + "\\" + name, files);
    } else {
      files.push_back(folder + "\\" + name);
    }
  } while (::FindNextFileA(search, &data));
  ::FindClose(search);
}

/// Opens random files without sharing, until its input ends. Then prints how many.
int scan(const std::vector<std::string>& args) {
  std::mt19937 random(4711);
  int opened = 0;
  say("scans");
  const HANDLE input = ::GetStdHandle(STD_INPUT_HANDLE);
  DWORD waiting = 0;
  while (::PeekNamedPipe(input, nullptr, 0, nullptr, &waiting, nullptr) && waiting == 0) {
    std::vector<std::string> files;
    collect_files(args.at(0), files);
    std::shuffle(files.begin(), files.end(), random);
    files.resize(std::min<std::size_t>(files.size(), 8));
    for (const std::string& each : files) {
      const RawFile file(each, GENERIC_READ, 0);
      if (!file.is_open()) continue;
      ++opened;
      ::Sleep(random() % 3);
    }
  }
  say(std::to_string(opened));
  return 0;
}
REGISTER_ROLE(scan, scan)

/// The content of a document. Retries while a scanner has its file open.
std::string content_at_last(Store& store, const std::string& name) {
  std::string content = store.content(name);
  for (int attempt = 0; attempt < 500 && content == "[VU_FAILED]"; ++attempt) {
    ::Sleep(2);
    content = store.content(name);
  }
  return content;
}

/// The allowed content of a store. After a refused call it is the old or the new one.
class Expected {
 public:
  void after_put(const std::string& name, const std::string& bytes, vu_status status) {
    std::set<std::string>& all = m_contents[name];
    if (all.empty()) all.insert(kNone);
    if (is_done(status)) all.clear();
    all.insert(bytes);
  }
  void after_remove(const std::string& name, vu_status status) {
    std::set<std::string>& all = m_contents[name];
    if (is_done(status) || status == VU_NOTHING_MATCHED) all.clear();
    all.insert(kNone);
  }
  bool allows(const std::string& name, const std::string& content) const {
    const auto known = m_contents.find(name);
    return known == m_contents.end() ? content == kNone : known->second.count(content) != 0;
  }
  std::vector<std::string> names() const {
    std::vector<std::string> result;
    for (const auto& [name, contents] : m_contents) result.push_back(name);
    return result;
  }

 private:
  static bool is_done(vu_status status) { return status == VU_DONE || status == VU_PARTLY_DONE; }

  static constexpr char kNone[] = "[VU_NOTHING_MATCHED]";
  std::map<std::string, std::set<std::string>> m_contents;
};

}  // namespace

TEST_F(Kernel, AFileThatAScannerHoldsWithoutSharingIsAFailureAndNotALoss) {
  settles(9, "a replacement while a program such as a virus scanner has the file open");
  Store store(program_root());
  ASSERT_EQ(store.put("a.kdc", "old"), VU_DONE);
  std::string read;
  vu_status put = VU_DONE;
  {
    const RawFile scanner(store.path("a.kdc"), GENERIC_READ, 0);
    ASSERT_TRUE(scanner.is_open());
    read = store.content("a.kdc");
    put = store.put("a.kdc", "new");
  }
  found("read: " + read + ", put: " + vu_status_name(put));
  EXPECT_EQ(read, "[VU_FAILED]");
  const std::string content = store.content("a.kdc");
  EXPECT_TRUE(content == "old" || content == "new") << content;
  EXPECT_EQ(store.put("a.kdc", "last"), VU_DONE);
  EXPECT_EQ(store.content("a.kdc"), "last");
  EXPECT_EQ(store.remove("a.kdc"), VU_DONE);
}

TEST_F(Kernel, AScannerThatOpensFilesAtRandomLosesNothing) {
  settles(10, "whether anything is lost while a scanner goes through the tree");
  Store store(program_root(), "scanner");
  Expected expected;
  ASSERT_EQ(store.put("begin.kdc", "x"), VU_DONE);
  child_process scanner("scan", {program_root()});
  ASSERT_TRUE(scanner.hears("scans"));
  std::mt19937 random(815);
  constexpr int kCalls = 150;
  int refused = 0;
  for (int i = 0; i < kCalls; ++i) {
    const std::string name = "document " + std::to_string(random() % 15) + ".kdc";
    vu_status status = VU_DONE;
    if (random() % 4 == 0) {
      status = store.remove(name);
      expected.after_remove(name, status);
    } else {
      const std::string bytes = "content " + std::to_string(i);
      status = store.put(name, bytes);
      expected.after_put(name, bytes, status);
    }
    if (status == VU_DONE || status == VU_NOTHING_MATCHED) continue;
    ++refused;
    const std::string content = content_at_last(store, name);
    EXPECT_TRUE(expected.allows(name, content)) << name << " after call " << i << ": " << content;
  }
  scanner.tell("end");
  const std::string opened = scanner.next_line().value_or("?");
  EXPECT_EQ(scanner.wait(), 0);
  EXPECT_NE(opened, "0");
  for (const std::string& name : expected.names()) {
    const std::string content = store.content(name);
    EXPECT_TRUE(expected.allows(name, content)) << name << ": " << content;
    EXPECT_EQ(store.put(name, "last"), VU_DONE);
    EXPECT_EQ(store.content(name), "last");
    EXPECT_EQ(store.remove(name), VU_DONE);
  }
  EXPECT_EQ(store.remove("begin.kdc"), VU_DONE);
  // Files that could not be removed come back as adopted documents.
  const std::size_t adopted = store.names().size();
  found("the scanner opened " + opened + " files; of " + std::to_string(kCalls) + " calls " +
        std::to_string(refused) + " were refused, and " + std::to_string(adopted) +
        " files remained");
}
