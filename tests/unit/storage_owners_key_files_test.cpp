#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>
#include <string>

#include "tests/unit/key_lines.h"
#include "tests/unit/storage_fixture.h"

// Key files of an owner, found through the index.

namespace {

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
  // The first file opened is the index, which names the key file.
  const auto fault = os::faults::fail(Call::open, kRefused, 2);
  EXPECT_EQ(save("profile.txt", {{"b", "2"}}), 0L);
  EXPECT_EQ(facade(trace_event::error),
            Texts{"vu_storage::writeKeysFile : throw exception on open"});
  EXPECT_EQ(read_file(file_of("profile.txt")), "a=1\n");
}

TEST_F(OwnersKeyFiles, AnIndexThatCannotBeLoadedIsAnErrorOfSaving) {
  EXPECT_EQ(save("profile.txt", {{"a", "1"}}), 0L);
  sink.clear();
  // Opened for the question first, then for the new entry.
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

  // The area folder is the one whose exception its maker lets out.
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

}  // namespace
