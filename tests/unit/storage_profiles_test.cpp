#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "platform/os/os.h"
#include "tests/support/os_faults.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "tests/support/storage_peer.h"
#include "tests/unit/storage_fixture.h"
#include "vu_storage.h"

// Users' profiles and the master profile.

namespace {

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

// ---- the master profile ------------------------------------------------------------------------

TEST_F(Profiles, OfTheMasterAreSavedInTheConfigurationFolder) {
  write_file(master("profile.txt"), "old=1\nolder=2\n");
  EXPECT_EQ(vu_storage::saveUserOrMasterProfile("", "", sequence({{"a", "1"}, {"b", "2"}})), 0);
  EXPECT_EQ(read_file(master("profile.txt")), "a=1\nb=2\n");
  EXPECT_EQ(vu_storage::saveUserOrMasterProfile("", "other.txt", sequence({{"c", "3"}})), 0);
  EXPECT_EQ(read_file(master("other.txt")), "c=3\n");
  // Nothing but the files: no index.
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
  // Appended, and split at the first separator.
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

// ---- users' profiles ---------------------------------------------------------------------------

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

// ---- nothing to save ---------------------------------------------------------------------------

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

// ---- exceptions --------------------------------------------------------------------------------

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
