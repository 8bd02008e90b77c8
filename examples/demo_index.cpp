// Indexes: listed, cleaned, migrated and shown.

#include <algorithm>
#include <array>
#include <chrono>
#include <iomanip>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "demo.h"
#include "stg_index.h"

namespace demo {

namespace {

using Folders = std::map<std::string, std::multiset<std::string>>;

/// @return the logical names that each folder must list.
Folders expected_names(Demo& demo) {
  vu_storage storage;
  Folders folders;
  for (const Version& version : demo.versions) {
    std::string folder;
    if (demo.report.check(storage.IsFileExist(version.owner, version.entry, version.type,
                                              version.stamp, &folder, nullptr),
                          name_of(version) + " is in an index"))
      folders[folder].insert(version.entry);
  }
  return folders;
}

bool is_document(const std::string& name) {
  return vu_storage::isVuDocExt(vu_file::getExtension(name));
}

/// Compares a folder with the results of STGIndex.
void ask_index(Demo& demo, const std::string& folder, const std::multiset<std::string>& names) {
  STGIndex::NameMap by_physical;
  STGIndex::NameMap by_logical;
  STGIndex::NameMap documents;
  STGIndex::plValues(folder, by_physical);
  STGIndex::lpValues(folder, by_logical);
  STGIndex::getVUDocs(folder, documents);
  const std::set<std::string> distinct(names.begin(), names.end());
  const auto expected = std::count_if(names.begin(), names.end(), is_document);
  demo.report.check(by_physical.size() == names.size(), folder + ": one physical file per version");
  demo.report.check(by_logical.size() == distinct.size(),
                    folder + ": one logical name per document");
  demo.report.check(std::cmp_equal(documents.size(), expected),
                    folder + ": lists the documents with extensions kda to kdg");
  for (const auto& [physical, logical] : by_physical)
    demo.report.check(vu_file::exists(text_of(folder, "\\", physical)),
                      text_of(folder, ": contains ", physical));
}

void ask_lists(Demo& demo, const std::string& folder, const std::multiset<std::string>& names) {
  std::vector<std::string> physical;
  const std::vector<std::string> all = vu_storage::getAllFileListFromIndexFile(folder, physical);
  demo.report.check(std::multiset<std::string>(all.begin(), all.end()) == names,
                    folder + ": lists the stored names");
  demo.report.check(
      physical.size() == all.size() && std::is_sorted(physical.begin(), physical.end()),
      folder + ": in the order of the physical names");

  std::vector<std::string> of_documents;
  const std::vector<std::string> some =
      vu_storage::getFileListFromIndexFile(folder, of_documents, nullptr);
  demo.report.check(
      std::all_of(some.begin(), some.end(), is_document) &&
          std::cmp_equal(some.size(), std::count_if(all.begin(), all.end(), is_document)),
      folder + ": lists only documents");
  if (some.empty()) return;
  const std::vector<std::string> wanted{some.back()};
  std::vector<std::string> of_wanted;
  const std::vector<std::string> found =
      vu_storage::getFileListFromIndexFile(folder, of_wanted, &wanted);
  demo.report.check(!found.empty() && std::set<std::string>(found.begin(), found.end()) ==
                                          std::set<std::string>{some.back()},
                    folder + ": lists only the requested name");
}

}  // namespace

void list_indexes(Demo& demo) {
  demo.report.begin("Listing the indexes");
  const Folders folders = expected_names(demo);
  std::size_t lines = 0;
  for (const auto& [folder, names] : folders) {
    ask_index(demo, folder, names);
    ask_lists(demo, folder, names);
    lines += names.size();
  }
  // The folder depends on the name only. It is the same on every system and must never change.
  std::string dir;
  vu_storage::createUserOrDomainNameDirectory("anna.schmidt", "ab", STG::CorporateRepository, dir,
                                              false);
  demo.report.check(dir == vu_storage::getCorpPath() + "\\anna.schmidt\\00000075",
                    "the corporate document 'ab' belongs in the folder 00000075");
  bool thrown = false;
  try {
    std::vector<std::string> none;
    vu_storage::getFileListFromIndexFile(demo.below_root("no such folder"), none, nullptr);
  } catch (const vu_file_except&) {
    thrown = true;
  }
  demo.report.check(thrown, "listing the documents of a missing folder throws an exception");
  demo.report.say(text_of(folders.size(), " folders with ", lines, " entries"));
}

// ------------------------------------------------------------------------------------------------
// Cleans old documents in the folder of one owner: first a preview, then the removal.

namespace {

using std::chrono::hours;

constexpr const char* kCleanedOwner = "cleaning";
constexpr unsigned long kNoLimit = 4294967295UL;
constexpr unsigned long kThreeDays = 3UL * 86400UL;

struct Output {
  const char* name;
  hours age;
};
// In order of age, the oldest first.
constexpr std::array kOutputs{
    Output{"year.kdc", hours(24 * 400)}, Output{"quarter.kdb", hours(24 * 100)},
    Output{"week.kdc", hours(24 * 7)},   Output{"yesterday.kda", hours(25)},
    Output{"an hour ago.kdg", hours(1)}, Output{"now.kdc", hours(0)}};
constexpr std::size_t kOld = 3;

class Cleaning {
 public:
  explicit Cleaning(Demo& demo) : m_demo(demo) {}

  void make();
  void preview();
  void clean();
  void clean_one();

 private:
  /// Prints the kept documents and checks that they are kOutputs from index @p first on, in order.
  void check_kept(const STGIndex::AgeMap& kept, std::size_t first);
  std::string on_disk(std::size_t i) const { return m_folder + "\\" + m_physical[i]; }

  Demo& m_demo;
  std::string m_folder;
  std::array<std::string, kOutputs.size()> m_physical;
};

/// Creates documents of known ages, each with a sub-part folder, and an orphaned sub-part folder.
void Cleaning::make() {
  vu_storage storage;
  for (std::size_t i = 0; i < kOutputs.size(); ++i) {
    add_version(m_demo, kCleanedOwner, STG::UserRepository, kOutputs[i].name, 0, kOutputs[i].name);
    storage.IsFileExist(kCleanedOwner, kOutputs[i].name, STG::UserRepository, 0, &m_folder,
                        &m_physical[i]);
    const std::filesystem::path file = native(on_disk(i));
    const std::filesystem::path parts = native(on_disk(i) + "_") / "html";
    std::filesystem::create_directories(parts);
    write_whole(parts / "page.html", std::string(3000, 'p'));
    std::filesystem::last_write_time(file,
                                     std::filesystem::last_write_time(file) - kOutputs[i].age);
  }
  std::filesystem::create_directories(native(m_folder + "\\orphan_"));
}

void Cleaning::check_kept(const STGIndex::AgeMap& kept, std::size_t first) {
  m_demo.report.check(
      kept.size() == kOutputs.size() - first,
      text_of(kOutputs.size() - first, " of ", kOutputs.size(), " documents are kept"));
  std::size_t i = first;
  for (const auto& [age, key] : kept) {
    m_demo.report.say(text_of("  ", std::setw(9), age, " s  ", key.substr(m_folder.size() + 1)));
    if (i == kOutputs.size()) break;
    const std::string expected = m_folder + "\\" + kOutputs[i].name + "_0000000000";
    const auto least = static_cast<unsigned long>(std::chrono::seconds(kOutputs[i].age).count());
    // The age may be larger, because the run takes some time.
    m_demo.report.check(key == expected && age >= least && age < least + 600,
                        text_of(kOutputs[i].name, " is listed in the order of age"));
    ++i;
  }
}

void Cleaning::preview() {
  const std::uint64_t before = fingerprint(native(m_folder));
  STGIndex::AgeMap kept;
  const unsigned long removed = STGIndex::cleanOutOfDateOutput(m_folder, kNoLimit, kept, false);
  m_demo.report.say("preview, the oldest first:");
  m_demo.report.check(removed == 0, "the preview removes nothing");
  check_kept(kept, 0);
  m_demo.report.check(fingerprint(native(m_folder)) == before,
                      "the preview does not change the folder");
}

void Cleaning::clean() {
  STGIndex::AgeMap kept;
  const unsigned long removed = STGIndex::cleanOutOfDateOutput(m_folder, kThreeDays, kept, false);
  ++m_demo.expected_errors;  // the sweep reports the removed orphan as an error
  m_demo.report.say(text_of("limit of 3 days: ", removed, " removed; kept:"));
  m_demo.report.check(removed == kOld, "documents older than three days are removed");
  check_kept(kept, kOld);
  for (std::size_t i = 0; i < kOutputs.size(); ++i) {
    const bool stays = i >= kOld;
    m_demo.report.check(
        vu_file::exists(on_disk(i)) == stays && vu_file::is_dir(on_disk(i) + "_") == stays,
        text_of(kOutputs[i].name, stays ? " is kept" : " is removed", " with its sub-parts"));
    if (!stays) forget_versions(m_demo, kCleanedOwner, kOutputs[i].name);
  }
  m_demo.report.check(!vu_file::exists(m_folder + "\\orphan_"), "the sweep removes the orphan");
}

void Cleaning::clean_one() {
  unsigned long kilobytes = 0;
  STGIndex::cleanOutputDirectories(m_folder, m_physical[kOld], &kilobytes);
  m_demo.report.check(kilobytes == 2 && !vu_file::exists(on_disk(kOld) + "_"),
                      "the sub-parts of one document are removed, and their size is returned");
  m_demo.report.check(vu_file::exists(on_disk(kOld)), "the document itself is kept");

  std::string folder;
  const std::string owner = "cleaned out";
  add_version(m_demo, owner, STG::UserRepository, "a.kdc", 0, "a");
  add_version(m_demo, owner, STG::UserRepository, "b.kdc", 5, "b");
  vu_storage storage;
  storage.IsFileExist(owner, "a.kdc", STG::UserRepository, 0, &folder, nullptr);
  STGIndex::cleanAllOutput(folder);
  STGIndex::NameMap left;
  STGIndex::plValues(folder, left);
  m_demo.report.check(left.empty(), "cleaning all output leaves no entry");
  m_demo.report.check(read_whole(native(folder + "\\index.dat")) == " ",
                      "cleaning all output leaves an empty index");
  forget_versions(m_demo, owner, "a.kdc");
  forget_versions(m_demo, owner, "b.kdc");
}

}  // namespace

void clean_output(Demo& demo) {
  demo.report.begin("Cleaning documents by age");
  Cleaning cleaning(demo);
  cleaning.make();
  cleaning.preview();
  cleaning.clean();
  cleaning.clean_one();
}

// ------------------------------------------------------------------------------------------------
// Migrates an old mail folder: its files have escaped names, and it has a read list.

namespace {

constexpr const char* kMailOwner = "inbox";

struct Mail {
  std::string escaped;
  std::string unescaped;  ///< the same when the migration does not rename the file
};

std::vector<Mail> mails() {
  return {{"north#1#jo#Q1%20Sales+2024.kdb", "north#1#jo#Q1 Sales 2024.kdb"},
          {"north#2#jo#50%25+off.kda", "north#2#jo#50% off.kda"},
          {"south#1#ann#Gr%C3%B6%C3%9Fe.kdf", "south#1#ann#Größe.kdf"},
          {"south#2#ann#plain.kdc", "south#2#ann#plain.kdc"},
          // Not an escaped name, because it contains a blank. The migration does not rename it.
          {"south#3#ann#has blank%20.kdc", "south#3#ann#has blank%20.kdc"}};
}

// Tabs separate the fields. Fields 4, 5, 1 and 2 form the name of the mail; field 3 determines its
// extension.
const char* const kReadBefore =
    "jo\tQ1%20Sales+2024\tB\tnorth\t1\tread\t\n"
    "a line of another kind\n"
    "ann\tplain\tH\tsouth\t2\tread\t\n"
    "jo\t50%25+off\tA\tnorth\t2\tunread\t\n"
    "jo\t50%25+off\tA\tnorth\t2\tthe same once more\t\n";
const char* const kReadAfter =
    "jo\tQ1 Sales 2024\tB\tnorth\t1\tread\t\n"
    "jo\t50% off\tA\tnorth\t2\tunread\t\n"
    "ann\tplain\tH\tsouth\t2\tread\t\n";

std::string bytes_of(const Mail& mail) { return "the mail " + mail.unescaped + "\n"; }

void check_mails(Demo& demo, const std::string& folder) {
  vu_storage storage;
  for (const Mail& mail : mails()) {
    const std::string bytes = bytes_of(mail);
    Version version{kMailOwner, STG::MailRepository, mail.unescaped, 0,
                    {},         bytes.size(),        fnv1a(bytes),   0};
    std::string back;
    demo.report.check(read_version(storage, version, back) && back == bytes,
                      name_of(version) + " is found under its unescaped name");
    demo.versions.push_back(version);
    if (mail.escaped == mail.unescaped) continue;
    demo.report.check(!vu_file::exists(folder + "\\" + mail.escaped),
                      mail.escaped + " no longer exists");
  }
}

}  // namespace

void migrate_mail(Demo& demo) {
  demo.report.begin("Migrating a mail folder with escaped names");
  Report& report = demo.report;
  std::string folder;
  report.check(vu_storage::createUserOrDomainNameDirectory(kMailOwner, "", STG::MailRepository,
                                                           folder, true),
               "a mail folder is created");
  for (const Mail& mail : mails())
    write_whole(native(folder + "\\" + mail.escaped), bytes_of(mail));
  write_whole(native(folder + "\\read.txt"), kReadBefore);

  STGIndex::migrateInboxRead(kMailOwner);
  check_mails(demo, folder);
  std::string list;
  report.check(STGIndex::exists(folder, "read.txt", 0, list) &&
                   read_whole(native(folder + "\\" + list)) == kReadAfter,
               "the read list contains each mail once, under its unescaped name, in order");
  std::string marker;
  report.check(STGIndex::exists(folder, "k1mailboxcompliant", 0, marker),
               "the folder has a marker");

  const std::string late = folder + "\\north#9#jo#late%20mail.kdb";
  write_whole(native(late), "late\n");
  STGIndex::migrateInboxRead(kMailOwner);
  report.check(vu_file::exists(late), "a folder with a marker is not changed");
  vu_file::remove(late);
  STGIndex::updateIndexFile(folder);

  STGIndex::migrateInboxRead("newcomer");
  const std::string newcomer = vu_storage::getMailPath() + "\\newcomer";
  report.check(vu_file::is_dir(newcomer) && !vu_file::exists(newcomer + "\\index.dat"),
               "a user without mail gets an empty folder");
  report.say(
      text_of(mails().size(), " mails, 3 of them with escaped names, and a read list of 5 lines"));
}

// ------------------------------------------------------------------------------------------------
// Shows the tree of the storage.

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kSampleLines = 6;
constexpr std::size_t kNameWidth = 28;

std::set<fs::path> folders_in(const fs::path& folder) {
  std::set<fs::path> folders;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder))
    if (entry.is_directory()) folders.insert(entry.path());
  return folders;
}

void show(Report& report, const fs::path& folder, const std::string& indent) {
  const Volume volume = volume_of(folder);
  // Columns count characters. In UTF-8 the bytes after the first of a character begin with bits 10.
  std::string name = indent + utf8(folder.filename());
  const auto followers = std::count_if(name.begin(), name.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
  });
  name.resize(std::max(name.size(), kNameWidth + static_cast<std::size_t>(followers)), ' ');
  report.say(text_of(name, std::setw(5), volume.files, " files ", std::setw(4), volume.folders,
                     " folders ", std::setw(11), size_text(volume.bytes)));
}

/// Prints some lines of the largest index of the corporate documents.
void show_index(Demo& demo) {
  fs::path best;
  std::size_t most = 0;
  for (const fs::directory_entry& entry :
       fs::recursive_directory_iterator(native(vu_storage::getCorpPath()))) {
    if (entry.path().filename() != "index.dat") continue;
    const std::string text = read_whole(entry.path());
    const auto lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
    if (lines < most || (lines == most && entry.path() > best)) continue;
    most = lines;
    best = entry.path();
  }
  if (best.empty()) return;
  demo.report.say("from " + utf8(best.lexically_relative(native(demo.root))) + ":");
  std::istringstream lines(read_whole(best));
  std::string line;
  for (std::size_t i = 0; i < kSampleLines && std::getline(lines, line); ++i)
    demo.report.say("  " + line);
}

}  // namespace

void show_tree(Demo& demo) {
  demo.report.begin("The tree");
  const fs::path storage = native(vu_storage::getStoragePath());
  show(demo.report, storage, "");
  for (const fs::path& area : folders_in(storage)) {
    show(demo.report, area, "  ");
    for (const fs::path& owner : folders_in(area)) show(demo.report, owner, "    ");
  }
  show_index(demo);
  demo.report.check(volume_of(storage).files > demo.versions.size(),
                    "there are at least as many files as versions");
}

}  // namespace demo
