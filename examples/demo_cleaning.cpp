// Cleans old documents in the folder of one owner: first a preview, then the removal.
#include <array>
#include <chrono>
#include <iomanip>
#include <map>

#include "demo.h"
#include "stg_index.h"

namespace demo {

namespace {

using std::chrono::hours;

constexpr const char* kOwner = "cleaning";
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
    add_version(m_demo, kOwner, STG::UserRepository, kOutputs[i].name, 0, kOutputs[i].name);
    storage.IsFileExist(kOwner, kOutputs[i].name, STG::UserRepository, 0, &m_folder,
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
    if (!stays) forget_versions(m_demo, kOwner, kOutputs[i].name);
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

}  // namespace demo
