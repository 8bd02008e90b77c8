// Key files of owners, and profiles. The first cases test their text alone, without files.

#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/os/os.h"
#include "stg_types.h"
#include "storage/key_text.h"
#include "tests/support/os_faults.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "tests/support/storage_peer.h"
#include "tests/unit/storage_fixture.h"
#include "vu_storage.h"

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

STG::NameValueSeq sequence_of(const Pairs& pairs) {
  STG::NameValueSeq seq;
  for (const auto& [name, value] : pairs) seq.push_back({name, value});
  return seq;
}

Pairs pairs_in(const std::string& text, key_text::Separator separator) {
  Pairs pairs;
  key_text::Lines lines(text);
  std::string_view line;
  while (lines.next(line)) {
    if (const auto pair = key_text::split(line, separator))
      pairs.emplace_back(std::string(pair->name), std::string(pair->value));
  }
  return pairs;
}

TEST(KeyText, ALineIsSplitAtItsFirstOrItsLastSeparator) {
  struct Case {
    const char* line;
    std::pair<const char*, const char*> first;
    std::pair<const char*, const char*> last;
  };
  for (const Case& c : {
           Case{"a=b", {"a", "b"}, {"a", "b"}},
           Case{"a=b=c", {"a", "b=c"}, {"a=b", "c"}},
           Case{"=x", {"", "x"}, {"", "x"}},
           Case{"x=", {"x", ""}, {"x", ""}},
           Case{"=", {"", ""}, {"", ""}},
           Case{"==", {"", "="}, {"=", ""}},
           Case{"a = b", {"a ", " b"}, {"a ", " b"}},
           Case{"#x=1", {"#x", "1"}, {"#x", "1"}},
           Case{"\"a=b\"", {"\"a", "b\""}, {"\"a", "b\""}},
           Case{"a\\=b=c", {"a\\", "b=c"}, {"a\\=b", "c"}},
       }) {
    SCOPED_TRACE(c.line);
    const auto first = key_text::split(c.line, key_text::Separator::kFirst);
    const auto last = key_text::split(c.line, key_text::Separator::kLast);
    ASSERT_TRUE(first && last);
    EXPECT_EQ(first->name, c.first.first);
    EXPECT_EQ(first->value, c.first.second);
    EXPECT_EQ(last->name, c.last.first);
    EXPECT_EQ(last->value, c.last.second);
  }
}

TEST(KeyText, ALineWithoutASeparatorGivesNothing) {
  for (const char* line : {"", "abc", " ", "a:b"}) {
    SCOPED_TRACE(line);
    EXPECT_FALSE(key_text::split(line, key_text::Separator::kFirst));
    EXPECT_FALSE(key_text::split(line, key_text::Separator::kLast));
  }
}

TEST(KeyText, CarriageReturnLineFeedAndTabEndALineAndRunsOfThemAreOneBoundary) {
  struct Case {
    std::string text;
    Pairs pairs;
  };
  const std::string nul("n\0=v\0w", 6);
  for (const Case& c : {
           Case{"", {}},
           Case{"\n", {}},
           Case{"\r\n\t", {}},
           Case{"a=b\n", {{"a", "b"}}},
           Case{"a=b", {{"a", "b"}}},
           Case{"a=b\tc=d", {{"a", "b"}, {"c", "d"}}},
           Case{"k=a\tw", {{"k", "a"}}},
           Case{"\r\n\r\nk=v\r\n", {{"k", "v"}}},
           Case{"a=1\rb=2\r\nc=3\n\rd=4\t\t\te=5",
                {{"a", "1"}, {"b", "2"}, {"c", "3"}, {"d", "4"}, {"e", "5"}}},
           Case{"a=1\n \nb=2\n", {{"a", "1"}, {"b", "2"}}},
           Case{"a=1\na=1\na=2\n", {{"a", "1"}, {"a", "1"}, {"a", "2"}}},
           Case{"b=1\na=2\n", {{"b", "1"}, {"a", "2"}}},
           Case{"a=\v1\f\n", {{"a", "\v1\f"}}},
           Case{"\xEF\xBB\xBFk=\xFC\n", {{"\xEF\xBB\xBFk", "\xFC"}}},
           Case{nul + "\n", {{std::string("n\0", 2), std::string("v\0w", 3)}}},
       }) {
    SCOPED_TRACE(testing::PrintToString(c.text));
    EXPECT_EQ(pairs_in(c.text, key_text::Separator::kFirst), c.pairs);
  }
}

TEST(KeyText, ASequenceBecomesOneLineForEachElementAndReadsBack) {
  EXPECT_EQ(key_text::join({}), "");
  const Pairs pairs = {{"a", "1"}, {"b", "2"}};
  EXPECT_EQ(key_text::join(sequence_of(pairs)), "a=1\nb=2\n");
  EXPECT_EQ(pairs_in("a=1\nb=2\n", key_text::Separator::kFirst), pairs);
  EXPECT_EQ(key_text::join(sequence_of({{"", ""}, {"z", "x=y"}, {"a", ""}, {"a", ""}})),
            "=\nz=x=y\na=\na=\n");
}

TEST(KeyText, CharactersThatALineCannotContainAreWrittenUnchanged) {
  const std::string text = key_text::join(sequence_of({{"a", "1\t2"}, {"b=c", "3"}}));
  EXPECT_EQ(text, "a=1\t2\nb=c=3\n");
  EXPECT_EQ(pairs_in(text, key_text::Separator::kFirst), (Pairs{{"a", "1"}, {"b", "c=3"}}));
  EXPECT_EQ(pairs_in(text, key_text::Separator::kLast), (Pairs{{"a", "1"}, {"b=c", "3"}}));
}

TEST(KeyText, CuttingTakesTheFirstOccurrenceAndTheRestOfItsLine) {
  struct Case {
    const char* text;
    const char* entry;
    bool found;
    const char* left;
  };
  for (const Case& c : {
           Case{"a=1\nb=2\n", "a", true, "b=2\n"},
           Case{"a=1\nb=2\n", "b", true, "a=1\n"},
           // The name is found inside another line, which keeps the text before it.
           Case{"ab=1\nb=2\n", "b", true, "ab=2\n"},
           Case{"x=b\nb=2\n", "b", true, "x=b=2\n"},
           Case{"a=1\nb=2\na=3\n", "a", true, "b=2\na=3\n"},
           Case{"a=1\n", "a", true, ""},
           Case{"a=1", "a", true, ""},
           Case{"a=1\nb=2", "b", true, "a=1\n"},
           Case{"a=1\nb=2\n", "c", false, "a=1\nb=2\n"},
           Case{"", "c", false, ""},
           Case{"a=1\r\nb=2\r\n", "a", true, "b=2\r\n"},
           // The cut ends only at a line feed.
           Case{"a=1\tb=2\nc=3\n", "a", true, "c=3\n"},
           // An entry across lines is cut from its start to its first line feed.
           Case{"a=1\nb=2\n", "1\nb", true, "a=b=2\n"},
           Case{"a=1\nb=2\n", "", true, "b=2\n"},
           Case{"", "", true, ""},
           Case{"\n", "", true, ""},
       }) {
    SCOPED_TRACE(testing::PrintToString(c.text) + " without " + testing::PrintToString(c.entry));
    std::string text = c.text;
    EXPECT_EQ(key_text::cut_line(text, c.entry), c.found);
    EXPECT_EQ(text, c.left);
  }
}

// Key files of an owner, found through the index.

using os::faults::Call;
using vu_host::trace_event;
using Peer = vu_storage_test_peer;

class OwnersKeyFiles : public StorageTest {
 protected:
  static long save(const std::string& name, const Pairs& pairs) {
    return Peer::saveKey("jdoe", name, STG::UserFilesRepository, sequence_of(pairs));
  }
  static long load(const std::string& name, STG::NameValueSeq& seq) {
    return Peer::loadKey("jdoe", name, STG::UserFilesRepository, seq);
  }
  std::string folder() const { return Peer::user_path() + "\\jdoe"; }
  std::string file_of(const std::string& name) const {
    std::string physical;
    EXPECT_TRUE(STGIndex::exists(folder(), name, 0, physical));
    return folder() + "\\" + physical;
  }
};

TEST_F(OwnersKeyFiles, WhatIsSavedIsLoaded) {
  EXPECT_EQ(save("profile.txt", {{"a", "1=2"}, {"b", ""}}), 0L);
  EXPECT_EQ(read_file(file_of("profile.txt")), "a=1=2\nb=\n");
  STG::NameValueSeq seq = sequence_of({{"kept", "0"}});
  EXPECT_EQ(load("profile.txt", seq), 0L);
  EXPECT_EQ(pairs_of(seq), (Pairs{{"kept", "0"}, {"a", "1=2"}, {"b", ""}}));
}

TEST_F(OwnersKeyFiles, SavingAgainReplacesTheLinesUnderTheSameEntry) {
  EXPECT_EQ(save("profile.txt", {{"a", "1"}, {"b", "2"}}), 0L);
  const std::string path = file_of("profile.txt");
  EXPECT_EQ(save("profile.txt", {{"c", "3"}}), 0L);
  EXPECT_EQ(file_of("profile.txt"), path);
  EXPECT_EQ(read_file(path), "c=3\n");
}

TEST_F(OwnersKeyFiles, SavingAnEmptySequenceSucceedsAndKeepsTheOldLines) {
  EXPECT_EQ(save("profile.txt", {{"a", "1"}}), 0L);
  EXPECT_EQ(save("profile.txt", {}), 0L);
  EXPECT_EQ(read_file(file_of("profile.txt")), "a=1\n");
  EXPECT_EQ(save("other.txt", {}), 0L);
  EXPECT_EQ(read_file(file_of("other.txt")), "");
}

TEST_F(OwnersKeyFiles, WhatCannotBeWrittenIsTracedAndSavedWithSuccess) {
  EXPECT_EQ(save("profile.txt", {{"a", "1"}}), 0L);
  sink.clear();
  // The first open is that of the index, which names the key file.
  const auto fault = os::faults::fail(Call::open, kRefused, 2);
  EXPECT_EQ(save("profile.txt", {{"b", "2"}}), 0L);
  EXPECT_EQ(facade(trace_event::error),
            Texts{"vu_storage::writeKeysFile : throw exception on open"});
  EXPECT_EQ(read_file(file_of("profile.txt")), "a=1\n");
}

TEST_F(OwnersKeyFiles, AnIndexThatCannotBeLoadedIsAnErrorOfSaving) {
  EXPECT_EQ(save("profile.txt", {{"a", "1"}}), 0L);
  sink.clear();
  // The first open is that of the query, the second that of the new entry.
  const auto fault = os::faults::fail(Call::open, kRefused, 2);
  EXPECT_EQ(save("other.txt", {{"b", "2"}}), 1L);
  EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::saveKey : throw exception on open"});
}

TEST_F(OwnersKeyFiles, AFolderThatCouldNotBeMadeIsNotLookedAtBeforeTheIndexFails) {
  const auto fault = os::faults::throw_from(Call::create_directory, std::runtime_error("planned"));
  EXPECT_EQ(save("profile.txt", {{"a", "1"}}), 1L);
  EXPECT_EQ(
      facade(trace_event::error),
      (Texts{"vu_storage::createUserOrDomainNameDirectory : Problem, can't create " + folder(),
             "vu_storage::saveKey : throw exception on open"}));
}

TEST_F(OwnersKeyFiles, AnyOtherExceptionIsAnErrorOfSaving) {
  EXPECT_EQ(save("profile.txt", {{"a", "1"}}), 0L);
  sink.clear();
  {
    const auto fault = os::faults::throw_from(Call::open, std::runtime_error("planned"));
    EXPECT_EQ(save("profile.txt", {{"b", "2"}}), 1L);
  }
  EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::saveKey"});

  // Only the function that creates the area folder lets this exception out.
  sink.clear();
  std::filesystem::remove_all(native(Peer::user_path()));
  const auto fault = os::faults::throw_from(Call::create_directory, std::runtime_error("planned"));
  EXPECT_EQ(save("profile.txt", {{"b", "2"}}), 1L);
  EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::saveKey"});
}

TEST_F(OwnersKeyFiles, LoadingOfAnUnknownOwnerFailsAndMakesNothing) {
  STG::NameValueSeq seq;
  EXPECT_EQ(load("profile.txt", seq), 1L);
  EXPECT_FALSE(folder_exists(folder()));
  EXPECT_EQ(facade(trace_event::error), Texts{});
}

TEST_F(OwnersKeyFiles, LoadingOfAnUnknownNameFails) {
  EXPECT_EQ(save("profile.txt", {{"a", "1"}}), 0L);
  STG::NameValueSeq seq;
  EXPECT_EQ(load("other.txt", seq), 1L);
  EXPECT_TRUE(seq.empty());
}

TEST_F(OwnersKeyFiles, LoadingFailsWhenTheFileOfTheIndexLineHasGone) {
  EXPECT_EQ(save("profile.txt", {{"a", "1"}}), 0L);
  std::filesystem::remove(native(file_of("profile.txt")));
  STG::NameValueSeq seq = sequence_of({{"kept", "0"}});
  EXPECT_EQ(load("profile.txt", seq), 1L);
  EXPECT_EQ(pairs_of(seq), (Pairs{{"kept", "0"}}));
}

TEST_F(OwnersKeyFiles, LoadingSucceedsWithoutLinesWhenTheFileGoesAfterTheIndexNamedIt) {
  EXPECT_EQ(save("profile.txt", {{"a", "1"}}), 0L);
  const std::string path = file_of("profile.txt");
  STG::NameValueSeq seq;
  const std::uint64_t last =
      calls_of(Call::probe_search, [&] { EXPECT_EQ(load("profile.txt", seq), 0L); });
  seq.clear();
  sink.clear();
  const auto race = os::faults::before(
      Call::probe_search, [&] { std::filesystem::remove(native(path)); }, last);
  EXPECT_EQ(load("profile.txt", seq), 0L);
  EXPECT_EQ(race.hits(), 1U);
  EXPECT_TRUE(seq.empty());
  EXPECT_EQ(facade(trace_event::warning),
            Texts{"vu_storage::readKeysFile : " + path + " not found"});
}

TEST_F(OwnersKeyFiles, LoadingSucceedsWithoutLinesWhenTheFileCannotBeOpened) {
  EXPECT_EQ(save("profile.txt", {{"a", "1"}}), 0L);
  sink.clear();
  STG::NameValueSeq seq;
  const auto fault = os::faults::fail(Call::open, kRefused, 2);
  EXPECT_EQ(load("profile.txt", seq), 0L);
  EXPECT_TRUE(seq.empty());
  EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::readKeysFile throw exception on open"});
}

TEST_F(OwnersKeyFiles, AnIndexThatCannotBeReadIsAnErrorOfLoading) {
  EXPECT_EQ(save("profile.txt", {{"a", "1"}}), 0L);
  sink.clear();
  STG::NameValueSeq seq;
  const auto fault = os::faults::fail(Call::read, kRefused);
  EXPECT_EQ(load("profile.txt", seq), 1L);
  EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::loadKey : throw exception on read"});
}

TEST_F(OwnersKeyFiles, AnyOtherExceptionIsAnErrorOfLoading) {
  EXPECT_EQ(save("profile.txt", {{"a", "1"}}), 0L);
  sink.clear();
  STG::NameValueSeq seq;
  const auto fault = os::faults::throw_from(Call::open, std::runtime_error("planned"));
  EXPECT_EQ(load("profile.txt", seq), 1L);
  EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::loadKey"});
}

// Users' profiles and the master profile.

using Peer = vu_storage_test_peer;
using Pairs = std::vector<std::pair<std::string, std::string>>;
using vu_host::trace_event;
namespace faults = os::faults;

STG::NameValueSeq sequence(const Pairs& pairs) {
  STG::NameValueSeq seq;
  for (const auto& [name, value] : pairs) seq.push_back({name, value});
  return seq;
}

Pairs pairs_of(const STG::NameValueSeq& seq) {
  Pairs pairs;
  for (const STG::NameValue& line : seq) pairs.emplace_back(line.name, line.value);
  return pairs;
}

class Profiles : public StorageTest {
 protected:
  Profiles() {
    make_folder(scratch.path("config"));
    Peer::set_config_dir_path(scratch.path("config"));
  }

  std::string master(const std::string& name) const { return scratch.path("config\\" + name); }
  std::string area(const std::string& name) const { return scratch.path("storage") + "\\" + name; }

  STG::NameValueSeq seq;
};

TEST_F(Profiles, OfTheMasterAreSavedInTheConfigurationFolder) {
  write_file(master("profile.txt"), "old=1\nolder=2\n");
  EXPECT_EQ(vu_storage::saveUserOrMasterProfile("", "", sequence({{"a", "1"}, {"b", "2"}})), 0);
  EXPECT_EQ(read_file(master("profile.txt")), "a=1\nb=2\n");
  EXPECT_EQ(vu_storage::saveUserOrMasterProfile("", "other.txt", sequence({{"c", "3"}})), 0);
  EXPECT_EQ(read_file(master("other.txt")), "c=3\n");
  // Only the files, without an index.
  EXPECT_EQ(list_folder(scratch.path("config")), (Texts{"other.txt", "profile.txt"}));
  EXPECT_TRUE(facade(trace_event::error).empty());
}

TEST_F(Profiles, OfTheMasterAreSavedUnderADoubledSeparator) {
  const auto refused = faults::fail(faults::Call::open, kRefused);
  EXPECT_EQ(vu_storage::saveUserOrMasterProfile("", "", sequence({{"a", "1"}})), 0);
  EXPECT_EQ(
      sink.count(trace_event::error, "open o_read : " + scratch.path("config") + "\\\\profile.txt"),
      1U);
}

TEST_F(Profiles, OfTheMasterAreLoadedFromTheFirstOfTwoNames) {
  write_file(master("master.txt"), "m=1\n");
  EXPECT_EQ(vu_storage::loadUserOrMasterProfile("", "", seq), 0);
  EXPECT_EQ(pairs_of(seq), (Pairs{{"m", "1"}}));
  write_file(master("profile.txt"), "p=2=3\n");
  EXPECT_EQ(vu_storage::loadUserOrMasterProfile("", "", seq), 0);
  // Pairs are appended; a line is split at the first separator.
  EXPECT_EQ(pairs_of(seq), (Pairs{{"m", "1"}, {"p", "2=3"}}));
}

TEST_F(Profiles, OfTheMasterAreLoadedFromAGivenNameAlone) {
  write_file(master("profile.txt"), "p=1\n");
  write_file(master("other.txt"), "o=1\n");
  EXPECT_EQ(vu_storage::loadUserOrMasterProfile("", "other.txt", seq), 0);
  EXPECT_EQ(pairs_of(seq), (Pairs{{"o", "1"}}));
  EXPECT_EQ(vu_storage::loadUserOrMasterProfile("", "none.txt", seq), 1);
  EXPECT_EQ(pairs_of(seq), (Pairs{{"o", "1"}}));
}

TEST_F(Profiles, OfTheMasterAreNotLoadedWithoutAFile) {
  seq = sequence({{"a", "1"}});
  EXPECT_EQ(vu_storage::loadUserOrMasterProfile("", "", seq), 1);
  EXPECT_EQ(pairs_of(seq), (Pairs{{"a", "1"}}));
  EXPECT_EQ(facade(trace_event::warning),
            Texts{"vu_storage::readKeysFile : " + master("master.txt") + " not found"});
}

TEST_F(Profiles, OfTheMasterCountAsSavedWhereThereIsNoConfigurationFolder) {
  Peer::set_config_dir_path(scratch.path("missing"));
  EXPECT_EQ(vu_storage::saveUserOrMasterProfile("", "", sequence({{"a", "1"}})), 0);
  EXPECT_FALSE(file_exists(scratch.path("missing")));
  EXPECT_EQ(facade(trace_event::error),
            Texts{"vu_storage::writeKeysFile : throw exception on open"});
  EXPECT_EQ(vu_storage::loadUserOrMasterProfile("", "", seq), 1);
}

TEST_F(Profiles, OfAUserAreIndexedFilesOfTheUserArea) {
  EXPECT_EQ(vu_storage::saveUserOrMasterProfile("jdoe", "mine.txt", sequence({{"a", "1"}})), 0);
  EXPECT_EQ(read_file(area("user") + "\\jdoe\\index.dat"), "mine.txt_0000000000/00000001\n");
  EXPECT_EQ(read_file(area("user") + "\\jdoe\\00000001.txt"), "a=1\n");
  EXPECT_EQ(vu_storage::loadUserOrMasterProfile("jdoe", "mine.txt", seq), 0);
  EXPECT_EQ(pairs_of(seq), (Pairs{{"a", "1"}}));
}

TEST_F(Profiles, OfAUserAreReplacedWhenSavedAgain) {
  EXPECT_EQ(vu_storage::saveUserOrMasterProfile("jdoe", "mine.txt", sequence({{"a", "1"}})), 0);
  EXPECT_EQ(vu_storage::saveUserOrMasterProfile("jdoe", "mine.txt", sequence({{"b", "2"}})), 0);
  EXPECT_EQ(vu_storage::loadUserOrMasterProfile("jdoe", "mine.txt", seq), 0);
  EXPECT_EQ(pairs_of(seq), (Pairs{{"b", "2"}}));
}

TEST_F(Profiles, OfAUserAreSharedWhenOwnersAre) {
  Peer::set_use_domain(false);
  EXPECT_EQ(vu_storage::saveUserOrMasterProfile("jdoe", "mine.txt", sequence({{"a", "1"}})), 0);
  EXPECT_EQ(vu_storage::loadUserOrMasterProfile("else", "mine.txt", seq), 0);
  EXPECT_EQ(pairs_of(seq), (Pairs{{"a", "1"}}));
}

TEST_F(Profiles, OfAUserAreFoundUnderTheNameTheyWereSavedUnder) {
  EXPECT_EQ(vu_storage::saveUserOrMasterProfile("jdoe", "mine.txt", sequence({{"a", "1"}})), 0);
  EXPECT_EQ(vu_storage::loadUserOrMasterProfile("jdoe", "other.txt", seq), 1);
  EXPECT_EQ(vu_storage::loadUserOrMasterProfile("nobody", "mine.txt", seq), 1);
  EXPECT_TRUE(seq.empty());
}

TEST_F(Profiles, OfAUserAreSavedUnderADefaultNameButNotFoundWithoutOne) {
  EXPECT_EQ(vu_storage::saveUserOrMasterProfile("jdoe", "", sequence({{"a", "1"}})), 0);
  EXPECT_EQ(vu_storage::loadUserOrMasterProfile("jdoe", "profile.txt", seq), 0);
  EXPECT_EQ(pairs_of(seq), (Pairs{{"a", "1"}}));
  EXPECT_EQ(vu_storage::loadUserOrMasterProfile("jdoe", "", seq), 1);
  EXPECT_EQ(pairs_of(seq), (Pairs{{"a", "1"}}));
}

TEST_F(Profiles, OfAUserAreNotReplacedByThoseOfTheMaster) {
  write_file(master("profile.txt"), "p=1\n");
  make_folder(area("user") + "\\jdoe");
  EXPECT_EQ(vu_storage::loadUserOrMasterProfile("jdoe", "profile.txt", seq), 1);
  EXPECT_TRUE(seq.empty());
}

TEST_F(Profiles, OfAUserCountAsSavedWhenTheyCannotBeWritten) {
  const auto full =
      faults::fail(faults::Call::create_directory, kRefused, 1, faults::Times::kLasting);
  EXPECT_EQ(vu_storage::saveUserOrMasterProfile("jdoe", "mine.txt", sequence({{"a", "1"}})), 0);
  EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::saveKey : throw exception on open"});
}

TEST_F(Profiles, WithoutLinesLeaveTheOldOnes) {
  write_file(master("profile.txt"), "old=1\n");
  EXPECT_EQ(vu_storage::saveUserOrMasterProfile("", "", seq), 0);
  EXPECT_EQ(read_file(master("profile.txt")), "old=1\n");
  EXPECT_EQ(vu_storage::saveUserOrMasterProfile("", "new.txt", seq), 0);
  EXPECT_FALSE(file_exists(master("new.txt")));

  EXPECT_EQ(vu_storage::saveUserOrMasterProfile("jdoe", "mine.txt", sequence({{"a", "1"}})), 0);
  EXPECT_EQ(vu_storage::saveUserOrMasterProfile("jdoe", "mine.txt", seq), 0);
  EXPECT_EQ(vu_storage::loadUserOrMasterProfile("jdoe", "mine.txt", seq), 0);
  EXPECT_EQ(pairs_of(seq), (Pairs{{"a", "1"}}));
}

TEST_F(Profiles, AreNotLoadedWhenTheChoiceOfTheNameRaises) {
  {
    const auto raised = faults::throw_from(faults::Call::probe_search, vu_file_except("no answer"));
    EXPECT_EQ(vu_storage::loadUserOrMasterProfile("", "", seq), 1);
    EXPECT_EQ(raised.hits(), 1U);
  }
  EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::loadUserOrMasterProfile : no answer"});
  sink.clear();
  {
    const auto raised = faults::throw_from(faults::Call::probe_search, std::runtime_error("odd"));
    EXPECT_THROW(vu_storage::loadUserOrMasterProfile("", "", seq), std::runtime_error);
  }
  EXPECT_TRUE(facade(trace_event::error).empty());
}

TEST_F(Profiles, AreNotSavedWhenTheInitialisationFails) {
  Peer::reset();
  {
    FailingTemporaryFiles failing{vu_file_except("no folder")};
    vu_host::install({&sink, nullptr, &failing, nullptr});
    EXPECT_EQ(vu_storage::saveUserOrMasterProfile("", "", sequence({{"a", "1"}})), 1);
    EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::saveUserOrMasterProfile : no folder"});
    EXPECT_EQ(vu_storage::loadUserOrMasterProfile("", "x", seq), 1);
  }
  {
    FailingTemporaryFiles failing{std::runtime_error("odd")};
    vu_host::install({&sink, nullptr, &failing, nullptr});
    EXPECT_THROW(vu_storage::saveUserOrMasterProfile("", "", seq), std::runtime_error);
    EXPECT_THROW(vu_storage::loadUserOrMasterProfile("", "", seq), std::runtime_error);
  }
  vu_host::install({&sink});
}

}  // namespace
