#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/os/os.h"
#include "tests/support/index_peer.h"
#include "tests/support/os_faults.h"
#include "tests/support/real_kernel.h"
#include "tests/unit/storage_fixture.h"
#include "vu_storage.h"

// How many system calls each operation makes: the numbers of docs/system-calls.md, and the same
// numbers in a large folder and in a small one.

namespace {

using os::faults::Call;

constexpr const char* kOwner = "jdoe";
constexpr auto kMail = STG::MailRepository;
constexpr auto kDocs = STG::CorporateRepository;
constexpr int kOnePage = 20;
constexpr int kFew = 150;                      // an index of two pages
constexpr int kMany = kOnWindows ? 300 : 600;  // six pages; three under a slow emulator
constexpr unsigned long kLongAgo = 1000000;

/// The system calls of one operation. Calls that the library answers itself or that only read a
/// variable of the process are not counted.
using Calls = std::map<std::string, std::int64_t>;

Calls counted(const std::function<void()>& operation) {
  os::faults::reset();
  operation();
  Calls calls;
  for (int i = 0; i < static_cast<int>(Call::any); ++i) {
    const auto call = static_cast<Call>(i);
    if (call == Call::is_lead_byte || call == Call::last_error || call == Call::to_narrow ||
        call == Call::nt_family || call == Call::locks_belong_to_handles || call == Call::now)
      continue;
    const auto count = static_cast<std::int64_t>(os::faults::calls(call));
    if (count != 0) calls[os::faults::name(call)] = count;
  }
  return calls;
}

/// The form of a table row: "3 | open 1, probe_search 2".
std::string text_of(const Calls& calls) {
  std::int64_t sum = 0;
  std::string text;
  for (const auto& [name, count] : calls) {
    sum += count;
    text += (text.empty() ? "" : ", ") + name + " " + std::to_string(count);
  }
  return std::to_string(sum) + " | " + (text.empty() ? "none" : text);
}

std::string logical(int entry) {
  char text[32];
  std::snprintf(text, sizeof text, "Report %06d.kdb", entry);
  return text;
}

/// Writes an index with all its files, and its counter.
void fill(const std::string& folder, int entries) {
  std::string text;
  for (int i = 0; i < entries; ++i) {
    char stored[16];
    std::snprintf(stored, sizeof stored, "%.8d", entries - i);
    text += logical(i) + "_0000000000/" + stored + "\n";
    write_file(folder + "\\" + stored + ".kdb", "bytes");
  }
  write_file(folder + "\\index.dat", text);
  char last[16];
  std::snprintf(last, sizeof last, "%.8d", entries);
  write_file(folder + "\\index", last);
}

enum class Kind { kQuestion, kChange };

struct Operation {
  Kind kind;
  std::string name;  ///< the name in the table
  std::function<void(const std::string& folder, const std::string& middle)> run;
  std::function<void(const std::string& folder)> prepare = [](const std::string&) {};
};

std::string g_physical;
STGIndex::NameMap g_names;
long g_timestamp = 0;

/// The operations of an index; `middle` is one of its entries, at timestamp 0.
std::vector<Operation> index_operations() {
  using Text = const std::string&;
  return {
      {Kind::kQuestion, "`exists`, hit",
       [](Text f, Text m) { STGIndex::exists(f, m, 0, g_physical); }},
      {Kind::kQuestion, "`exists`, miss",
       [](Text f, Text m) { STGIndex::exists(f, m, 1, g_physical); }},
      {Kind::kQuestion, "`exists`, a file of that name",
       [](Text f, Text) { STGIndex::exists(f, "00000001.kdb", 0, g_physical); }},
      {Kind::kChange, "`create`, new", [](Text f, Text m) { STGIndex::create(f, m, 1); }},
      {Kind::kQuestion, "`create`, there already",
       [](Text f, Text m) { STGIndex::create(f, m, 0); }},
      {Kind::kChange, "`remove`", [](Text f, Text m) { STGIndex::remove(f, m, 0); }},
      {Kind::kQuestion, "`remove`, not there", [](Text f, Text m) { STGIndex::remove(f, m, 1); }},
      {Kind::kChange, "`rename`", [](Text f, Text m) { STGIndex::rename(f, m, 0, m, 1); }},
      {Kind::kQuestion, "`rename`, not there",
       [](Text f, Text m) { STGIndex::rename(f, m, 1, m, 2); }},
      {Kind::kQuestion, "`lastVersion`",
       [](Text f, Text m) { STGIndex::lastVersion(f, m, g_timestamp); }},
      {Kind::kQuestion, "`plValues`", [](Text f, Text) { STGIndex::plValues(f, g_names); }},
      {Kind::kQuestion, "`lpValues`", [](Text f, Text) { STGIndex::lpValues(f, g_names); }},
      {Kind::kQuestion, "`getCategories`",
       [](Text f, Text) { STGIndex::getCategories(f, g_names); }},
      {Kind::kQuestion, "`getVUDocs`", [](Text f, Text) { STGIndex::getVUDocs(f, g_names); }},
      {Kind::kChange, "`getPhysicalName`, new",
       [](Text f, Text) { STGIndex::getPhysicalName(f, "new.kdb"); }},
      {Kind::kQuestion, "`getPhysicalPath`, there already",
       [](Text f, Text m) { STGIndex::getPhysicalPath(f, m); }},
      {Kind::kChange, "`updateIndexFile`", [](Text f, Text) { STGIndex::updateIndexFile(f); }},
  };
}

void make_old(const std::string& folder) {
  constexpr int kYear2000 = 946684800;
  for (const std::string& name : vu_file::filenames(folder))
    set_modify_time(folder + "\\" + name, kYear2000);
}

/// The operations that look at every entry: a fixed number of calls, and a number for each entry.
std::vector<Operation> operations_on_every_entry() {
  using Text = const std::string&;
  const auto clean = [](Text folder, unsigned long limit) {
    STGIndex::AgeMap kept;
    STGIndex::cleanOutOfDateOutput(folder, limit, kept, false);
  };
  return {
      {Kind::kChange, "`cleanOutOfDateOutput`, nothing removed",
       [clean](Text f, Text) { clean(f, kLongAgo); }},
      {Kind::kChange, "`cleanOutOfDateOutput`, everything removed",
       [clean](Text f, Text) { clean(f, 0); }},
      {Kind::kChange, "`cleanOutOfDateOutput`, everything out of date",
       [clean](Text f, Text) { clean(f, 1); }, make_old},
      {Kind::kChange, "`updateIndexFile`, adopting",
       [](Text f, Text) { STGIndex::updateIndexFile(f); },
       [](Text f) { vu_file::remove(f + "\\index.dat"); }},
  };
}

/// The rows of the table in docs/system-calls.md: operation -> "calls | which".
std::map<std::string, std::string> documented() {
  std::ifstream page(VU_TEST_DOCS "/system-calls.md");
  EXPECT_TRUE(page.is_open()) << VU_TEST_DOCS;
  std::map<std::string, std::string> rows;
  bool inside = false;
  for (std::string line; std::getline(page, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.starts_with("<!-- calls")) inside = line != "<!-- calls end -->";
    if (!inside || !line.starts_with("| `")) continue;
    const std::size_t name_end = line.find(" | ", 2);
    const std::size_t number_end = line.find(" | ", name_end + 3);
    const std::size_t which_end = line.find(" | ", number_end + 3);
    if (which_end == std::string::npos) continue;
    rows[line.substr(2, name_end - 2)] = line.substr(name_end + 3, which_end - name_end - 3);
  }
  return rows;
}

class CallCounts : public StorageTest {
 protected:
  /// A folder with this number of entries; each change gets a fresh one.
  std::string folder_with(int entries, Kind kind) {
    const std::string name = kind == Kind::kChange ? std::to_string(++m_folders) : "asked";
    const std::string folder = scratch.path(name + "-" + std::to_string(entries));
    if (folder_exists(folder)) return folder;
    make_folder(folder);
    fill(folder, entries);
    return folder;
  }
  Calls count(const Operation& operation, int entries) {
    const std::string folder = folder_with(entries, operation.kind);
    const std::string middle = logical(entries / 2);
    operation.prepare(folder);
    return counted([&] { operation.run(folder, middle); });
  }
  void expect_documented(const std::string& name, const std::string& calls) {
    EXPECT_EQ(m_documented[name], calls) << name;
  }
  /// Expects the rows of a fixed number of calls, and of a number for each entry.
  void expect_fixed_and_each(const std::string& name, const std::string& each_name,
                             const std::function<Calls(int)>& calls_for) {
    const Calls few = calls_for(kFew);
    const Calls more = calls_for(2 * kFew);
    const Calls many = calls_for(4 * kFew);
    Calls fixed;
    Calls each;
    for (const auto& [call, calls] : few) {
      const std::int64_t per_entry = (more.at(call) - calls) / kFew;
      EXPECT_EQ(many.at(call), calls + 3 * kFew * per_entry) << name << ": " << call;
      if (per_entry != 0) each[call] = per_entry;
      if (calls != kFew * per_entry) fixed[call] = calls - kFew * per_entry;
    }
    expect_documented(name, text_of(fixed));
    expect_documented(name + each_name, text_of(each));
  }
  static std::string folder_of_owner(const std::string& entry, STG::RepositoryType type,
                                     int entries) {
    const std::string folder = folder_of(kOwner, entry, type);
    fill(folder, entries);
    return folder;
  }

  // Without a sink the library makes no calls for traces, for example for error texts.
  void SetUp() override { vu_host::install({}); }

  synchronisation on{true};
  std::map<std::string, std::string> m_documented = documented();

 private:
  int m_folders = 0;
};

TEST_F(CallCounts, OfAnIndexOperationAreDocumentedAndDoNotDependOnTheEntries) {
  for (const Operation& operation : index_operations()) {
    const Calls few = count(operation, kFew);
    expect_documented(operation.name, text_of(few));
    EXPECT_EQ(text_of(count(operation, kMany)), text_of(few)) << operation.name;
    // An index that fits a page is written at once.
    for (const auto& [name, calls] : count(operation, kOnePage)) {
      EXPECT_LE(calls, few.contains(name) ? few.at(name) : 0) << operation.name << ": " << name;
    }
  }
}

std::int64_t sum_of(const Calls& calls) {
  std::int64_t sum = 0;
  for (const auto& [name, number] : calls) sum += number;
  return sum;
}

TEST_F(CallCounts, OfAnExistenceQuestionAreAtMostTen) {
  const std::vector<Operation> operations = index_operations();
  for (std::size_t i = 0; i < 2; ++i) {
    EXPECT_LE(sum_of(count(operations[i], kMany)), 10) << operations[i].name;
  }
}

TEST_F(CallCounts, OfAnIndexOperationAreNotMoreWithoutSynchronisation) {
  for (const Operation& operation : index_operations()) {
    const Calls with = count(operation, kFew);
    const synchronisation off{false};
    const Calls without = count(operation, kFew);
    // A query lists no folder for files that it does not need. It checks single files instead.
    EXPECT_LE(sum_of(without), sum_of(with)) << operation.name << ": " << text_of(without);
  }
}

TEST_F(CallCounts, OfAQuestionForOneNameListNoFolderWithoutSynchronisation) {
  const synchronisation off{false};
  std::size_t questions = 0;
  for (const Operation& operation : index_operations()) {
    // If the index names no category, no query lists the folder for one.
    if (!operation.name.starts_with("`exists`") && operation.name != "`lastVersion`" &&
        operation.name != "`getCategories`")
      continue;
    ++questions;
    const Calls calls = count(operation, kMany);
    EXPECT_FALSE(calls.contains("list")) << operation.name << ": " << text_of(calls);
    EXPECT_EQ(text_of(calls), text_of(count(operation, kFew))) << operation.name;
  }
  EXPECT_GE(questions, 4U);
}

TEST_F(CallCounts, OfCleaningAreDocumentedAsAFixedPartAndOnePerEntry) {
  for (const Operation& operation : operations_on_every_entry()) {
    const bool adopts = operation.name.ends_with("adopting");
    expect_fixed_and_each(operation.name, adopts ? ", per file" : ", per entry",
                          [&](int entries) { return count(operation, entries); });
  }
}

/// Fills a mail folder with mails under escaped names, each with a line in the read list.
void fill_with_escaped_mails(const std::string& folder, int mails) {
  std::string text;
  std::string list;
  for (int i = 0; i < mails; ++i) {
    const std::string number = std::to_string(100000 + i);
    const std::string name = "4#5#M" + number + "#A%20mail.kdb";
    text += name + "_0000000000/" + name + "\n";
    list += "M" + number + "\tA%20mail\tB\t4\t5\tsix\t\n";
    write_file(folder + "\\" + name, "bytes");
  }
  write_file(folder + "\\00000001.txt", list);
  write_file(folder + "\\index.dat", text + "read.txt_0000000000/00000001\n");
  write_file(folder + "\\index", "00000001");
}

TEST_F(CallCounts, OfTheMigrationAreDocumentedAsAFixedPartAndOnePerMail) {
  expect_fixed_and_each("`migrateInboxRead`", ", per mail", [](int mails) {
    const std::string folder = folder_of(kOwner, "read.txt", kMail);
    fill_with_escaped_mails(folder, mails);
    const Calls calls = counted([] { STGIndex::migrateInboxRead(kOwner); });
    EXPECT_NE(read_file(folder + "\\index.dat").find("A mail.kdb"), std::string::npos);
    vu_storage::RemoveUserStorage(vu_utf8string(std::string(kOwner)));
    return calls;
  });
}

TEST_F(CallCounts, OfReadingAndWritingADocumentAreDocumentedAndDoNotDependOnTheEntries) {
  for (const int entries : {kFew, kMany}) {
    const std::string middle = logical(entries / 2);
    folder_of_owner(middle, kMail, entries);
    folder_of_owner(middle, kDocs, entries);
    vu_storage client;
    vu_file file;
    std::string bytes;
    const auto expect = [&](const std::string& name, const std::function<void()>& operation) {
      expect_documented(name, text_of(counted(operation)));
    };
    expect("`OpenRead`, mail", [&] { client.OpenRead(file, kOwner, middle, kMail, 0); });
    ASSERT_TRUE(file.is_open());
    expect("`Read`, whole", [&] { client.Read(file, bytes, 0); });
    expect("`Close` after reading", [&] { client.Close(file); });
    EXPECT_EQ(bytes, "bytes");
    expect("`OpenRead`, corporate", [&] { client.OpenRead(file, kOwner, middle, kDocs, 0); });
    ASSERT_TRUE(file.is_open());
    client.Close(file);
    expect("`OpenWrite`, new, mail",
           [&] { client.OpenWrite(file, kOwner, "new.kdb", kMail, true, 5); });
    ASSERT_TRUE(file.is_open());
    expect("`Write`", [&] { client.Write(file, "bytes"); });
    expect("`Close` after writing", [&] { client.Close(file); });
    expect("`OpenWrite`, replacing, mail",
           [&] { client.OpenWrite(file, kOwner, middle, kMail, true, 0); });
    client.Close(file);
    expect("`OpenWrite`, replacing, corporate",
           [&] { client.OpenWrite(file, kOwner, middle, kDocs, true, 0); });
    client.Close(file);
    vu_storage::RemoveUserStorage(vu_utf8string(std::string(kOwner)));
    vu_file::recurseRemoveDir(folder_of(kOwner, middle, kDocs));
  }
}

TEST_F(CallCounts, TableHasNoRowOfAnOperationThatIsNotCounted) {
  std::size_t known = index_operations().size() + 2 * operations_on_every_entry().size();
  known += 2;  // the migration
  known += 9;  // documents, above
  EXPECT_EQ(m_documented.size(), known);
}

}  // namespace
