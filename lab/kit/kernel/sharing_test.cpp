// Programs that open files and share them with nobody, as some virus scanners and backups do.

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "lab/kit/kernel/kernel.h"
#include "tests/support/process.h"

namespace {

/// All files below a folder.
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

/// Opens files at random and shares them with nobody, until its input ends; then tells how many.
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

/// What a document holds; a scanner may have its file just now.
std::string content_at_last(Store& store, const std::string& name) {
  std::string content = store.content(name);
  for (int attempt = 0; attempt < 500 && content == "[VU_FAILED]"; ++attempt) {
    ::Sleep(2);
    content = store.content(name);
  }
  return content;
}

/// What a store must hold: where a call was refused, the old content or the new one.
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
  settles(9, "what a program that shares nothing, a virus scanner say, does to a replacement");
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
  // Files that could not be removed come back as documents of their own.
  const std::size_t adopted = store.names().size();
  found("the scanner opened " + opened + " files; of " + std::to_string(kCalls) + " calls " +
        std::to_string(refused) + " were refused, and " + std::to_string(adopted) +
        " files stayed behind");
}
