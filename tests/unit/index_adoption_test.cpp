#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <string>

#include "platform/os/os.h"
#include "tests/support/process.h"
#include "tests/support/real_kernel.h"
#include "tests/support/recording_sink.h"
#include "tests/unit/index_fixture.h"

// Adoption: orphans become entries under their names.

namespace {

using os::faults::Call;
using os::faults::Times;
using Peer = stg_index_test_peer;
using NameMap = STGIndex::NameMap;
using vu_host::trace_event;

class IndexAdoption : public IndexTest {
 protected:
  IndexAdoption() : IndexTest(UnknownFiles::kAreAdopted) {}

  /// Loads the index, which adopts the orphans, and saves it.
  void adopt() const { const STGIndex index = Peer::load(folder.path()); }
  /// The listing without the index.
  Texts other_names() const {
    Texts names = folder.names();
    std::erase(names, "index.dat");
    return names;
  }
  Texts adoption_texts() const {
    return {
        "M:  STGIndex (copy manually to folder): Set need update flag to true: index.dat will be "
        "updated",
        "M:                             folder : " + folder.path()};
  }
  Texts saving_texts() const {
    return {"M:  STGIndex: (begin) updating index.dat ...", "M:   folder : " + folder.path(),
            "M:  STGIndex: (end) index.dat is uptodate", "M:   folder : " + folder.path()};
  }
};

TEST_F(IndexAdoption, EntersEveryPlainFileUnderItsOwnName) {
  folder.write("notes.txt", "n");
  folder.write("README", "r");
  folder.write("a b.c.kdb", "k");
  adopt();
  EXPECT_EQ(folder.index(),
            "README_0000000000/README\n"
            "a b.c.kdb_0000000000/a b.c.kdb\n"
            "notes.txt_0000000000/notes.txt\n");
  EXPECT_EQ(folder.read("notes.txt"), "n");
  EXPECT_EQ(other_names(), (Texts{"README", "a b.c.kdb", "notes.txt"}));
}

TEST_F(IndexAdoption, WritesNothingInAnEmptyFolder) {
  adopt();
  EXPECT_EQ(folder.names(), Texts{});
}

TEST_F(IndexAdoption, WritesNothingWhereAllIsKnown) {
  folder.write("notes.txt");
  folder.write("00000001.kdb");
  folder.write("index", "00000001");
  folder.set_index("a.kdb_0000000001/00000001\nnotes.txt_0000000000/notes.txt\n");
  set_modify_time(folder.path("index.dat"), 1000);
  const auto before = folder.state();
  adopt();
  EXPECT_EQ(folder.state(), before);
}

TEST_F(IndexAdoption, IsSwitchedOff) {
  const synchronisation off(false);
  folder.write("notes.txt");
  adopt();
  EXPECT_FALSE(folder.has_index());
  folder.set_index(" ");
  {
    STGIndex index = Peer::load(folder.path());
    EXPECT_TRUE(Peer::lp(index).empty());
    Peer::set_need_update(index);
  }
  EXPECT_EQ(folder.index(), " ");
}

TEST_F(IndexAdoption, LeavesFoldersAndTheIndexsOwnFilesOut) {
  make_folder(folder.path("sub"));
  make_folder(folder.path("00000001.kdb_"));
  folder.write("index", "00000001");
  folder.set_index(" ");
  folder.write("sub\\inner.txt");
  adopt();
  EXPECT_EQ(folder.index(), " ");
}

TEST_F(IndexAdoption, RecognisesTheIndexsOwnFilesByTheirExactNames) {
  folder.write("index.txt");
  folder.write("xindex");
  folder.write("index.dat2");
#if !defined(_WIN32)
  // On Windows these names are the index and the counter.
  folder.write("INDEX");
  folder.write("Index.dat");
#endif
  adopt();
  const STGIndex index = Peer::load(folder.path());
#if !defined(_WIN32)
  EXPECT_EQ(Peer::lp(index).size(), 5U);
  EXPECT_TRUE(Peer::_contains(index, "INDEX", 0));
  EXPECT_TRUE(Peer::_contains(index, "Index.dat", 0));
#else
  EXPECT_EQ(Peer::lp(index).size(), 3U);
#endif
  EXPECT_TRUE(Peer::_contains(index, "index.txt", 0));
  EXPECT_TRUE(Peer::_contains(index, "xindex", 0));
  EXPECT_TRUE(Peer::_contains(index, "index.dat2", 0));
}

TEST_F(IndexAdoption, LowersTheCaseOfTheExtension) {
  folder.write("Report.KDB", "bytes");
  adopt();
  EXPECT_EQ(folder.index(), "Report.kdb_0000000000/Report.kdb\n");
  EXPECT_EQ(folder.read("Report.kdb"), "bytes");
#if !defined(_WIN32)
  // Wine may report success for a rename that changes only the case, and do nothing.
  EXPECT_EQ(other_names(), (Texts{"Report.kdb"}));
#endif
}

TEST_F(IndexAdoption, LowersNothingButWhatFollowsTheLastDot) {
  folder.write("README.FIRST.TXT");
  folder.write("MAKEFILE");
  folder.write("Mixed.TxT9_Z");
  adopt();
  EXPECT_EQ(folder.index(),
            "MAKEFILE_0000000000/MAKEFILE\n"
            "Mixed.txt9_z_0000000000/Mixed.txt9_z\n"
            "README.FIRST.txt_0000000000/README.FIRST.txt\n");
}

#if !defined(_WIN32)
TEST_F(IndexAdoption, LowersAsciiLettersOnly) {
  // Narrow names are in a code page on Windows.
  folder.write("a.\xC3\x84Z\xDF");
  folder.write(".PROFILE");
  folder.write("DOT.");
  adopt();
  EXPECT_EQ(folder.index(),
            ".profile_0000000000/.profile\n"
            "DOT._0000000000/DOT.\n"
            "a.\xC3\x84z\xDF_0000000000/a.\xC3\x84z\xDF\n");
}

TEST_F(IndexAdoption, KeepsTheNameWhenTheLowerCaseOneIsTaken) {
  // For systems with case-sensitive names.
  folder.write("Report.KDB", "upper");
  folder.write("Report.kdb", "lower");
  adopt();
  EXPECT_EQ(folder.index(), "Report.KDB_0000000000/Report.KDB\nReport.kdb_0000000000/Report.kdb\n");
  EXPECT_EQ(folder.read("Report.KDB"), "upper");
  EXPECT_EQ(folder.read("Report.kdb"), "lower");
}

TEST_F(IndexAdoption, FollowsLinksToDistinguishFoldersFromFiles) {
  scratch_folder elsewhere;
  write_file(elsewhere.path("target"), "linked");
  std::filesystem::create_symlink(native(elsewhere.path("target")), native(folder.path("to-file")));
  std::filesystem::create_symlink(native(elsewhere.path()), native(folder.path("to-folder")));
  adopt();
  EXPECT_EQ(folder.index(), "to-file_0000000000/to-file\n");
}
#endif

TEST_F(IndexAdoption, RenamesAlsoWhenNoLetterChanges) {
  folder.write("notes.txt");
  folder.write("README");
  os::faults::reset();
  adopt();
  // A name without a dot is not renamed.
  EXPECT_EQ(os::faults::calls(Call::rename), 1U);
}

TEST_F(IndexAdoption, KeepsTheNameWhenTheRenamingFails) {
  folder.write("Report.KDB", "bytes");
  const auto fault = os::faults::fail(Call::rename, kRefused);
  adopt();
  EXPECT_EQ(fault.hits(), 1U);
  EXPECT_EQ(folder.index(), "Report.KDB_0000000000/Report.KDB\n");
  EXPECT_EQ(folder.read("Report.KDB"), "bytes");
}

TEST_F(IndexAdoption, MakesTheFileWritable) {
  folder.write("notes.txt");
  make_read_only(folder.path("notes.txt"));
  adopt();
  EXPECT_TRUE(is_writable(folder.path("notes.txt")));
  EXPECT_EQ(folder.index(), "notes.txt_0000000000/notes.txt\n");
}

TEST_F(IndexAdoption, TracesEachFileAndThenTheSaving) {
  folder.write("a.txt");
  folder.write("b.txt");
  recording_sink sink;
  adopt();
  EXPECT_EQ(index_traces(sink), adoption_texts() + adoption_texts() + saving_texts());
}

TEST_F(IndexAdoption, KnowsGeneratedFilesByTheirNameWithoutExtension) {
  folder.write("00000001.kdb");
  folder.write("00000001.other");
  folder.write("00000001");
  folder.write("00000002.kdb");
  folder.set_index("a.kdb_0000000001/00000001\n");
  adopt();
  EXPECT_EQ(folder.index(), "00000002.kdb_0000000000/00000002.kdb\na.kdb_0000000001/00000001\n");
}

TEST_F(IndexAdoption, TakesAFileForKnownBesideOneOfItsNameWithoutExtension) {
  // A physical name without an extension may be a generated name, even if it does not look like
  // one.
  folder.write("notes");
  folder.write("notes.txt");
  folder.set_index("notes_0000000000/notes\n");
  adopt();
  EXPECT_EQ(folder.index(), "notes_0000000000/notes\n");
}

TEST_F(IndexAdoption, QueriesTheMapsInTwoSteps) {
  STGIndex index = Peer::load(folder.path());
  Peer::insert(index, "a.kdb_0000000001", "00000001");
  Peer::insert(index, "notes.txt_0000000000", "notes.txt");
  Peer::insert(index, "other_0000000000", "moved.txt");
  Peer::insert(index, "later.txt_0000000005", "later.txt");
  EXPECT_TRUE(Peer::alreadyInMaps(index, "00000001.kdb"));
  EXPECT_TRUE(Peer::alreadyInMaps(index, "00000001.x"));
  EXPECT_TRUE(Peer::alreadyInMaps(index, "00000001"));
  EXPECT_FALSE(Peer::alreadyInMaps(index, "00000001.x.y"));
  EXPECT_TRUE(Peer::alreadyInMaps(index, "notes.txt"));
  EXPECT_TRUE(Peer::alreadyInMaps(index, "notes.txt.bak"));
  EXPECT_FALSE(Peer::alreadyInMaps(index, "notes"));
  // A whole file name matches only an entry with timestamp 0 and the same logical name.
  EXPECT_FALSE(Peer::alreadyInMaps(index, "moved.txt"));
  EXPECT_FALSE(Peer::alreadyInMaps(index, "later.txt"));
  EXPECT_FALSE(Peer::alreadyInMaps(index, ""));
}

TEST_F(IndexAdoption, LooksAFileUpWhoseNameIsAlsoStoredForAnother) {
  // Both lines have the same physical name. For the second line it is the whole file name.
  const std::string text = "a.kdb_0000000001/n.txt\nn.txt_0000000000/n.txt\n";
  folder.write("n.txt.kdb");
  folder.write("n.txt");
  folder.set_index(text);
  STGIndex index = Peer::load(folder.path());
  EXPECT_FALSE(Peer::alreadyInMaps(index, "n.txt"));
  EXPECT_TRUE(Peer::need_update(index)) << "so it is adopted once more";
}

/// The reference model: looks up each listed file in the maps and enters it if unknown.
void adopt_plainly(const std::string& folder, NameMap& lp, NameMap& pl) {
  for (const std::string& name : vu_file::filenames(folder)) {
    if (name == "index.dat" || name == "index" || vu_file::is_dir(folder + "\\" + name)) continue;
    const std::string key = name + "_0000000000";
    const auto it = pl.find(name);
    if (it != pl.end() && it->second == key) continue;
    if (pl.contains(name.substr(0, name.rfind('.')))) continue;
    const std::string physical = lp.emplace(key, name).first->second;
    pl.emplace(physical, key);
  }
}

TEST_F(IndexAdoption, FindsWhatAskingForEveryFileByItselfFinds) {
  std::mt19937 random(31415);
  const Texts files = {"a", "a.x", "a.y", "a.x.y", "b.x", "c", "00000001", "00000001.x", "index.x"};
  const Texts lines = {"a_0000000000/a\n",          "a.x_0000000000/a.x\n",
                       "a.x_0000000001/a\n",        "b.x_0000000000/b.x\n",
                       "z.y_0000000000/a.x\n",      "b.x_0000000003/b\n",
                       "k.x_0000000002/00000001\n", "k_0000000002/00000001\n",
                       "c_0000000000/c.x\n",        "torn\n",
                       "c_0000000000/00000001\n"};
  make_folder(folder.path("d.x"));
  std::size_t adopted = 0;
  for (int round = 0; round < 200; ++round) {
    for (const std::string& name : files) {
      const bool wanted = random() % 2 == 0;
      if (wanted && !folder.has(name)) folder.write(name);
      if (!wanted && folder.has(name)) folder.erase(name);
    }
    std::string text;
    for (std::size_t left = random() % 5; left != 0; --left) text += lines[random() % lines.size()];
    folder.set_index(text);
    NameMap lp;
    NameMap pl;
    plain_index::load(folder.path(), text, lp, pl);
    const std::size_t known = lp.size();
    adopt_plainly(folder.path(), lp, pl);
    adopted += lp.size() - known;
    const STGIndex index = Peer::load(folder.path());
    ASSERT_EQ(Peer::lp(index), lp) << plain_index::shown(text);
    ASSERT_EQ(Peer::pl(index), pl) << plain_index::shown(text);
  }
  EXPECT_GT(adopted, 200U);
}

TEST_F(IndexAdoption, KeepsTheStoredNameOfAnEntryThatIsThereAlready) {
  folder.write("00000005.txt", "generated");
  folder.write("a.txt", "dropped");
  folder.set_index("a.txt_0000000000/00000005\n");
  recording_sink sink;
  {
    const STGIndex index = Peer::load(folder.path());
    EXPECT_EQ(Peer::lp(index), (NameMap{{"a.txt_0000000000", "00000005"}}));
    EXPECT_EQ(Peer::pl(index), (NameMap{{"00000005", "a.txt_0000000000"}}));
    EXPECT_TRUE(Peer::need_update(index));
  }
  EXPECT_EQ(folder.index(), "a.txt_0000000000/00000005\n");
  // The save makes the physical name writable. No file has this name.
  EXPECT_EQ(
      sink.count(trace_event::error, "vu_file::chmodW : failed (" + folder.path("00000005") + ")"),
      1U);
}

TEST_F(IndexAdoption, DoesNotOverwriteThePhysicalNameOfAnotherEntry) {
  folder.write("moved.txt");
  folder.set_index("other_0000000000/moved.txt\n");
  adopt();
  const STGIndex index = Peer::load(folder.path());
  EXPECT_EQ(Peer::lp(index),
            (NameMap{{"moved.txt_0000000000", "moved.txt"}, {"other_0000000000", "moved.txt"}}));
}

TEST_F(IndexAdoption, AdoptsNothingBesideAnUnknownEntry) {
  const std::string text = "a.kdb_0000000001/00000001\n";
  folder.set_index(text);
  folder.write("stray.txt");
  const auto fault = os::faults::fail(Call::probe_search, {5, os::Failure::kOther}, 2);
  adopt();
  EXPECT_EQ(fault.hits(), 1U);
  EXPECT_EQ(folder.index(), text);
}

TEST_F(IndexAdoption, DoesNotReuseTheNumberOfAnUnknownEntry) {
  folder.write("00000001.kdb", "bytes of a");
  folder.set_index("a.kdb_0000000001/00000001\n");
  const synchronisation off(false);
  // The listing fails, so the file of the line is checked by itself. There is no counter.
  const auto listing = os::faults::fail(Call::list, {5, os::Failure::kOther});
  const auto fault =
      os::faults::fail(Call::probe_search, {5, os::Failure::kOther}, 4, Times::kLasting);
  EXPECT_EQ(STGIndex::create(folder.path(), "b.kdb", 1), "00000002.kdb");
  EXPECT_EQ(folder.index(), "a.kdb_0000000001/00000001\nb.kdb_0000000001/00000002\n");
}

TEST_F(IndexAdoption, NeverRemovesAnEntry) {
  folder.write("00000001.kdb");
  folder.set_index("a.kdb_0000000001/00000001\n");
  STGIndex index = Peer::load(folder.path());
  folder.erase("00000001.kdb");
  Peer::synchronizeToFolder(index);
  EXPECT_TRUE(Peer::_contains(index, "a.kdb", 1));
  EXPECT_FALSE(Peer::need_update(index));
}

TEST_F(IndexAdoption, GivesAnAdoptedNumberToNoNewEntry) {
  folder.write("00000001");
  folder.write("00000002.txt");
  {
    STGIndex index = Peer::load(folder.path());
    // "00000002.txt" uses no number: its physical name includes the extension.
    EXPECT_EQ(Peer::_create(index, "a.kdb", 1), "00000002.kdb");
  }
  EXPECT_EQ(folder.index(),
            "00000001_0000000000/00000001\n"
            "00000002.txt_0000000000/00000002.txt\n"
            "a.kdb_0000000001/00000002\n");
}

TEST_F(IndexAdoption, TakesGeneratedFilesForFoundOnesWhenTheIndexIsLost) {
  {
    STGIndex index = Peer::load(folder.path());
    Peer::_create(index, "a.kdb", 1);
  }
  folder.erase("index.dat");
  adopt();
  EXPECT_EQ(folder.index(), "00000001.kdb_0000000000/00000001.kdb\n");
}

TEST_F(IndexAdoption, DoesNotReadAllLinesForEachFileWhereNoLineIsValid) {
  // If each look-up read all lines, it would compare 80,000,000,000 names.
  constexpr int kLines = 40000;
  constexpr int kFiles = 2000000;
  std::string missing;
  for (int i = 0; i < kLines; ++i) missing += "a_0000000001/gone" + std::to_string(i) + "\n";
  folder.set_index(missing);
  const synchronisation off{false};
  const STGIndex index = Peer::load(folder.path());
  const test_alarm alarm("2,000,000 look-ups", std::chrono::seconds(30));
  int found = 0;
  for (int i = 0; i < kFiles; ++i)
    found += Peer::alreadyInMaps(index, "new" + std::to_string(i)) ? 1 : 0;
  EXPECT_EQ(found, 0);
}

TEST_F(IndexAdoption, EndsAtAFileExceptionAndKeepsWhatItHas) {
  folder.write("a.txt");
  folder.write("b.txt");
  folder.write("c.txt");
  recording_sink sink;
  {
    const auto fault = os::faults::throw_from(Call::rename, vu_file_except("the reason", 3), 2);
    EXPECT_NO_THROW(adopt());
    EXPECT_EQ(fault.hits(), 1U);
  }
  EXPECT_EQ(index_traces(sink),
            adoption_texts() + Texts{"Error: synchronizeToFolder : the reason"} + saving_texts());
  const STGIndex index = [this] {
    const synchronisation off(false);
    return Peer::load(folder.path());
  }();
  EXPECT_EQ(Peer::lp(index).size(), 1U);
}

TEST_F(IndexAdoption, EndsAtAnyOtherExceptionWithoutItsText) {
  const std::exception_ptr exceptions[] = {std::make_exception_ptr(std::runtime_error("text")),
                                           std::make_exception_ptr(7)};
  for (const std::exception_ptr& exception : exceptions) {
    folder.write("a.txt");
    recording_sink sink;
    {
      const auto fault = os::faults::fail_with(Call::rename, exception);
      EXPECT_NO_THROW(adopt());
    }
    EXPECT_EQ(index_traces(sink), (Texts{"Error: synchronizeToFolder : unknown exception"}));
    EXPECT_FALSE(folder.has_index());
  }
}

TEST_F(IndexAdoption, EndsWhenTheListingRaises) {
  folder.write("a.txt");
  recording_sink sink;
  {
    const auto fault = os::faults::throw_from(Call::list, vu_file_except("listing"));
    EXPECT_NO_THROW(adopt());
  }
  EXPECT_EQ(index_traces(sink), (Texts{"Error: synchronizeToFolder : listing"}));
  EXPECT_FALSE(folder.has_index());
}

TEST_F(IndexAdoption, IsRepeatedWhileARenameOfTheCaseAloneDoesNothing) {
  // As on a system where this rename reports success but has no effect.
  folder.write("Report.KDB", "bytes");
  {
    const auto fault = os::faults::cut_transfer(Call::rename, 0);
    adopt();
    EXPECT_EQ(fault.hits(), 1U);
  }
#if defined(_WIN32)
  // The file is found under either spelling.
  EXPECT_EQ(folder.index(), "Report.kdb_0000000000/Report.kdb\n");
#else
  // The file of the line is missing: the save drops the entry, and the next load adopts the file.
  EXPECT_EQ(folder.index(), " ");
  adopt();
  EXPECT_EQ(folder.index(), "Report.kdb_0000000000/Report.kdb\n");
#endif
}

TEST_F(IndexAdoption, IsSwitchedForTheWholeProcess) {
  EXPECT_TRUE(Peer::synchronizes());
  STGIndex::setSynchronizeMode(false);
  EXPECT_FALSE(Peer::synchronizes());
  STGIndex::setSynchronizeMode(true);
  EXPECT_TRUE(Peer::synchronizes());
}

}  // namespace
