#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/os/os.h"
#include "tests/support/os_faults.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "tests/support/storage_peer.h"
#include "tests/unit/storage_fixture.h"
#include "vu_storage.h"

// What can be asked about documents.

namespace {

using Peer = vu_storage_test_peer;
using vu_host::trace_event;
namespace faults = os::faults;

constexpr auto kUser = STG::UserRepository;
constexpr auto kDocs = STG::CorporateRepository;
constexpr auto kMail = STG::MailRepository;

class DocumentQuestions : public StorageTest {
 protected:
  void store(const std::string& owner, const std::string& entry, STG::RepositoryType type,
             long timestamp) {
    vu_file file;
    EXPECT_TRUE(client.OpenWrite2(file, owner, entry, type, true, timestamp));
    client.Close(file);
  }
  std::string area(const std::string& name) const { return scratch.path("storage") + "\\" + name; }

  vu_storage client;
  std::string folder = "(folder)";
  std::string physical = "(physical)";
};

// ---- IsFileExist -------------------------------------------------------------------------------

TEST_F(DocumentQuestions, FindAVersionAndTellWhereItIs) {
  store("jdoe", "x.kdc", kDocs, 5);
  EXPECT_TRUE(client.IsFileExist("jdoe", "x.kdc", kDocs, 5, &folder, &physical));
  EXPECT_EQ(folder, area("docs") + "\\jdoe\\00000062");
  EXPECT_EQ(physical, "00000001.kdc");
}

TEST_F(DocumentQuestions, FindAVersionForWhoeverAsksNothingMore) {
  store("jdoe", "x.kdc", kMail, 5);
  EXPECT_TRUE(client.IsFileExist("jdoe", "x.kdc", kMail, 5, nullptr, nullptr));
  EXPECT_FALSE(client.IsFileExist("jdoe", "y.kdc", kMail, 5, nullptr, nullptr));
  EXPECT_TRUE(client.IsFileExist("jdoe", "x.kdc", kMail, 5, &folder, nullptr));
  EXPECT_TRUE(client.IsFileExist("jdoe", "x.kdc", kMail, 5, nullptr, &physical));
  EXPECT_EQ(folder, area("mail") + "\\jdoe");
  EXPECT_EQ(physical, "00000001.kdc");
}

TEST_F(DocumentQuestions, LeaveTheOutputsAloneWhenNothingIsFound) {
  store("jdoe", "x.kdc", kUser, 5);
  EXPECT_FALSE(client.IsFileExist("jdoe", "x.kdc", kUser, 6, &folder, &physical));
  EXPECT_FALSE(client.IsFileExist("nobody", "x.kdc", kUser, 5, &folder, &physical));
  EXPECT_EQ(folder, "(folder)");
  EXPECT_EQ(physical, "(physical)");
  EXPECT_EQ(list_folder(area("user")), Texts{"jdoe"});
}

TEST_F(DocumentQuestions, FindNothingOfAnEmptyOwner) {
  store("", "x.kdc", kUser, 0);
  EXPECT_FALSE(client.IsFileExist("", "x.kdc", kUser, 0, &folder, &physical));
  Peer::set_use_domain(false);
  store("", "x.kdc", kUser, 0);
  EXPECT_FALSE(client.IsFileExist("", "x.kdc", kUser, 0, &folder, &physical));
  EXPECT_TRUE(client.IsFileExist("anybody", "x.kdc", kUser, 0, &folder, &physical));
}

TEST_F(DocumentQuestions, FindNothingWhereTheFolderIsAFile) {
  write_file(area("user") + "\\jdoe", "no folder");
  EXPECT_FALSE(client.IsFileExist("jdoe", "x.kdc", kUser, 0, &folder, &physical));
  // The index is not even asked.
  EXPECT_EQ(sink.count(trace_event::error), 0U);
  EXPECT_EQ(sink.count(trace_event::warning), 0U);
}

TEST_F(DocumentQuestions, FindNothingWhenTheAnswerRaises) {
  store("jdoe", "x.kdc", kUser, 0);
  sink.clear();
  {
    const auto raised = faults::throw_from(faults::Call::probe_search, vu_file_except("no answer"));
    EXPECT_FALSE(client.IsFileExist("jdoe", "x.kdc", kUser, 0, &folder, &physical));
  }
  EXPECT_EQ(facade(trace_event::error), Texts{"Error : vu_storage::IsFileExist : no answer"});
  sink.clear();
  {
    const auto raised = faults::throw_from(faults::Call::stat, std::runtime_error("odd"));
    EXPECT_FALSE(client.IsFileExist("jdoe", "x.kdc", kUser, 0, &folder, &physical));
    EXPECT_EQ(raised.hits(), 1U);
  }
  EXPECT_EQ(facade(trace_event::error), Texts{"Error : vu_storage::IsFileExist"});
  EXPECT_EQ(folder, "(folder)");
}

TEST_F(DocumentQuestions, AreAnsweredForUtf8NamesByteForByte) {
  store("jos\xC3\xA9", "\xE2\x82\xAC.kdc", kUser, 0);
  EXPECT_TRUE(client.IsFileExist(vu_utf8string("jos\xC3\xA9"), vu_utf8string("\xE2\x82\xAC.kdc"),
                                 kUser, 0, &folder, &physical));
  EXPECT_EQ(folder, area("user") + "\\jos\xC3\xA9");
  EXPECT_EQ(physical, "00000001.kdc");
  EXPECT_FALSE(client.IsFileExist(vu_utf8string("jose"), vu_utf8string("\xE2\x82\xAC.kdc"), kUser,
                                  0, &folder, &physical));
}

// ---- timestamps --------------------------------------------------------------------------------

TEST_F(DocumentQuestions, TellTheLatestTimestamp) {
  store("jdoe", "x.kdc", kDocs, 10);
  store("jdoe", "x.kdc", kDocs, 30);
  store("jdoe", "x.kdc", kDocs, 20);
  EXPECT_EQ(vu_storage::getLattestTimestamp("jdoe", "x.kdc", kDocs), 30);
}

TEST_F(DocumentQuestions, TellZeroWhenTheFolderHoldsNoVersion) {
  store("jdoe", "x.kdc", kUser, 10);
  EXPECT_EQ(vu_storage::getLattestTimestamp("jdoe", "y.kdc", kUser), 0);
}

TEST_F(DocumentQuestions, TellMinusOneWithoutAnEntryOrAFolder) {
  vu_file::remove(area("user"));
  EXPECT_EQ(vu_storage::getLattestTimestamp("jdoe", "", kUser), -1);
  EXPECT_FALSE(folder_exists(area("user")));
  EXPECT_EQ(vu_storage::getLattestTimestamp("jdoe", "x.kdc", kUser), -1);
  // The area is made, the owner's folder is not.
  EXPECT_TRUE(folder_exists(area("user")));
  EXPECT_TRUE(list_folder(area("user")).empty());
}

TEST_F(DocumentQuestions, LetTheExceptionsOfTheIndexPass) {
  store("jdoe", "x.kdc", kUser, 10);
  sink.clear();
  {
    const auto refused = faults::fail(faults::Call::open, kRefused);
    EXPECT_THROW(vu_storage::getLattestTimestamp("jdoe", "x.kdc", kUser), vu_file_except);
  }
  {
    const auto raised = faults::throw_from(faults::Call::open, std::runtime_error("odd"));
    EXPECT_THROW(vu_storage::getLattestTimestamp("jdoe", "x.kdc", kUser), std::runtime_error);
  }
  {
    const auto raised = faults::throw_from(faults::Call::probe_search, vu_file_except("area"));
    EXPECT_THROW(vu_storage::getLattestTimestamp("jdoe", "x.kdc", kUser), vu_file_except);
  }
  EXPECT_TRUE(facade(trace_event::error).empty());
}

TEST_F(DocumentQuestions, TellTheLastVersionOfAFolder) {
  store("jdoe", "x.kdc", kUser, 10);
  store("jdoe", "x.kdc", kUser, 7);
  const std::string owner = area("user") + "\\jdoe";
  long timestamp = -3;
  EXPECT_TRUE(Peer::getLastVersion(owner, "x.kdc", timestamp));
  EXPECT_EQ(timestamp, 10);
  EXPECT_FALSE(Peer::getLastVersion(owner, "y.kdc", timestamp));
  EXPECT_EQ(timestamp, 0);
}

// ---- the index ---------------------------------------------------------------------------------

TEST_F(DocumentQuestions, TellThePhysicalNameInAFolder) {
  store("jdoe", "x.kdc", kUser, 10);
  const std::string owner = area("user") + "\\jdoe";
  EXPECT_FALSE(vu_storage::getIndexNameFromDocName(owner, "x.kdc", 11, physical));
  EXPECT_EQ(physical, "(physical)");
  EXPECT_TRUE(vu_storage::getIndexNameFromDocName(owner, "x.kdc", 10, physical));
  EXPECT_EQ(physical, "00000001.kdc");
}

TEST_F(DocumentQuestions, TellNoPhysicalNameWhenTheIndexRaises) {
  store("jdoe", "x.kdc", kUser, 10);
  const std::string owner = area("user") + "\\jdoe";
  {
    sink.clear();
    const auto broken = faults::fail(faults::Call::read, kRefused);
    EXPECT_FALSE(vu_storage::getIndexNameFromDocName(owner, "x.kdc", 10, physical));
    EXPECT_EQ(broken.hits(), 1U);
    EXPECT_EQ(facade(trace_event::error), Texts{"Error : vu_storage::getIndexNameFromFileName"});
  }
  {
    sink.clear();
    const auto raised = faults::throw_from(faults::Call::read, std::runtime_error("odd"));
    EXPECT_FALSE(vu_storage::getIndexNameFromDocName(owner, "x.kdc", 10, physical));
    EXPECT_EQ(raised.hits(), 1U);
    EXPECT_EQ(facade(trace_event::error), Texts{"Error : vu_storage::getIndexNameFromFileName"});
  }
  EXPECT_EQ(physical, "(physical)");
}

TEST_F(DocumentQuestions, MakeTheIndexOfAFolderWhenAskedTo) {
  make_folder(area("user") + "\\jdoe");
  client.update_IndexDat(area("user") + "\\jdoe");
  EXPECT_EQ(list_folder(area("user") + "\\jdoe"), Texts{"index.dat"});
  EXPECT_EQ(read_file(area("user") + "\\jdoe\\index.dat"), " ");
}

TEST_F(DocumentQuestions, AdoptFilesWhenTheIndexIsMadeWithSynchronisationOn) {
  STGIndex::setSynchronizeMode(true);
  make_folder(area("user") + "\\jdoe");
  write_file(area("user") + "\\jdoe\\notes.txt", "abc");
  client.update_IndexDat(area("user") + "\\jdoe");
  EXPECT_EQ(read_file(area("user") + "\\jdoe\\index.dat"), "notes.txt_0000000000/notes.txt\n");
}

TEST_F(DocumentQuestions, LetTheExceptionsOfTheRewritePass) {
  store("jdoe", "x.kdc", kUser, 10);
  sink.clear();
  const auto broken = faults::fail(faults::Call::read, kRefused);
  EXPECT_THROW(client.update_IndexDat(area("user") + "\\jdoe"), vu_file_except);
  EXPECT_TRUE(facade(trace_event::error).empty());
}

}  // namespace
