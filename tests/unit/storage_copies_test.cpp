#include <gtest/gtest.h>

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

// Copies between the storage and ordinary paths.

namespace {

using Peer = vu_storage_test_peer;
using vu_host::trace_event;
namespace faults = os::faults;

constexpr auto kUser = STG::UserRepository;
constexpr auto kDocs = STG::CorporateRepository;
constexpr auto kMail = STG::MailRepository;

class DocumentCopies : public StorageTest {
 protected:
  DocumentCopies() { write_file(source, "abc"); }

  /// The bytes of a version, "(none)" without one.
  std::string stored(const std::string& entry, STG::RepositoryType type, long timestamp) {
    std::string folder;
    std::string physical;
    if (!client.IsFileExist("jdoe", entry, type, timestamp, &folder, &physical)) return "(none)";
    return read_file(folder + "\\" + physical);
  }
  std::string area(const std::string& name) const { return scratch.path("storage") + "\\" + name; }

  vu_storage client;
  std::string source = scratch.path("source.kdc");
};

// ---- into the storage --------------------------------------------------------------------------

TEST_F(DocumentCopies, StoreAVersion) {
  set_modify_time(source, 1'000'000);
  EXPECT_TRUE(vu_storage::copyToStorage(source, "jdoe", "x.kdc", kDocs, true, 5));
  EXPECT_EQ(stored("x.kdc", kDocs, 5), "abc");
  EXPECT_EQ(get_modify_time(area("docs") + "\\jdoe\\00000062\\00000001.kdc"), 1'000'000);
}

TEST_F(DocumentCopies, ReplaceAVersion) {
  EXPECT_TRUE(vu_storage::copyToStorage(source, "jdoe", "x.kdc", kDocs, true, 5));
  write_file(source, "d");
  EXPECT_TRUE(vu_storage::copyToStorage(source, "jdoe", "x.kdc", kDocs, true, 5));
  EXPECT_EQ(stored("x.kdc", kDocs, 5), "d");
}

TEST_F(DocumentCopies, LeaveAVersionAloneThatIsNotToBeReplaced) {
  EXPECT_TRUE(vu_storage::copyToStorage(source, "jdoe", "x.kdc", kUser, true, 5));
  write_file(source, "d");
  EXPECT_FALSE(vu_storage::copyToStorage(source, "jdoe", "x.kdc", kUser, false, 5));
  EXPECT_EQ(stored("x.kdc", kUser, 5), "abc");
}

TEST_F(DocumentCopies, LeaveAnEmptyVersionWhenANewOneIsNotToBeReplaced) {
  EXPECT_FALSE(vu_storage::copyToStorage(source, "jdoe", "x.kdc", kUser, false, 5));
  EXPECT_EQ(stored("x.kdc", kUser, 5), "");
}

TEST_F(DocumentCopies, FailWithoutASource) {
  EXPECT_FALSE(vu_storage::copyToStorage(scratch.path("none"), "jdoe", "x.kdc", kUser, true, 5));
  EXPECT_EQ(stored("x.kdc", kUser, 5), "");
}

TEST_F(DocumentCopies, FailWithoutAnEntry) {
  EXPECT_FALSE(vu_storage::copyToStorage(source, "jdoe", "", kUser, true, 5));
  EXPECT_TRUE(list_folder(area("user")).empty());
}

TEST_F(DocumentCopies, FailWhereTheVersionCannotBeOpened) {
  EXPECT_TRUE(vu_storage::copyToStorage(source, "jdoe", "x.kdc", kUser, true, 0));
  sink.clear();
  const auto refused = faults::fail(faults::Call::open, kRefused, 2);
  EXPECT_FALSE(vu_storage::copyToStorage(source, "jdoe", "x.kdc", kUser, true, 0));
  EXPECT_EQ(refused.hits(), 1U);
  EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::OpenWrite : throw exception on open"});
}

// ---- out of the storage ------------------------------------------------------------------------

TEST_F(DocumentCopies, FetchADocumentOverWhatIsThere) {
  EXPECT_TRUE(vu_storage::copyToStorage(source, "jdoe", "x.kdc", kDocs, true, 0));
  const std::string target = scratch.path("target");
  write_file(target, "something longer");
  EXPECT_TRUE(vu_storage::copyFromStorage(target, "jdoe", "x.kdc", kDocs, 1));
  EXPECT_EQ(read_file(target), "abc");
}

TEST_F(DocumentCopies, FetchOnlyWhatWouldBeServed) {
  set_modify_time(source, 1'000);
  EXPECT_TRUE(vu_storage::copyToStorage(source, "jdoe", "x.kdc", kDocs, true, 0));
  EXPECT_FALSE(vu_storage::copyFromStorage(scratch.path("target"), "jdoe", "x.kdc", kDocs, 1'001));
  EXPECT_FALSE(vu_storage::copyFromStorage(scratch.path("target"), "jdoe", "y.kdc", kDocs, 0));
  EXPECT_FALSE(file_exists(scratch.path("target")));
  EXPECT_TRUE(vu_storage::copyFromStorage(scratch.path("target"), "jdoe", "x.kdc", kDocs, 1'000));
}

TEST_F(DocumentCopies, FailWithoutAPlaceToGo) {
  EXPECT_TRUE(vu_storage::copyToStorage(source, "jdoe", "x.kdc", kMail, true, 0));
  EXPECT_FALSE(
      vu_storage::copyFromStorage(scratch.path("none") + "\\target", "jdoe", "x.kdc", kMail, 0));
}

// ---- whole files -------------------------------------------------------------------------------

TEST_F(DocumentCopies, StoreAFileUnderItsOwnNameWithoutAVersion) {
  EXPECT_TRUE(client.copyFileToStorage(scratch.path(), "source.kdc", "jdoe", kMail));
  EXPECT_EQ(stored("source.kdc", kMail, 0), "abc");
  EXPECT_EQ(read_file(area("mail") + "\\jdoe\\index.dat"), "source.kdc_0000000000/00000001\n");
}

TEST_F(DocumentCopies, StoreAFileTwiceAsOneEntry) {
  EXPECT_TRUE(client.copyFileToStorage(scratch.path(), "source.kdc", "jdoe", kMail));
  write_file(source, "d");
  EXPECT_TRUE(client.copyFileToStorage(scratch.path(), "source.kdc", "jdoe", kMail));
  EXPECT_EQ(stored("source.kdc", kMail, 0), "d");
  EXPECT_EQ(read_file(area("mail") + "\\jdoe\\index.dat"), "source.kdc_0000000000/00000002\n");
  EXPECT_EQ(list_folder(area("mail") + "\\jdoe"), (Texts{"00000002.kdc", "index", "index.dat"}));
}

TEST_F(DocumentCopies, StoreAFileAndWriteTheIndexOnceMore) {
  const std::string index = area("mail") + "\\jdoe\\index.dat";
  const auto lost = faults::after(faults::Call::copy, [&] { vu_file::remove(index); });
  EXPECT_TRUE(client.copyFileToStorage(scratch.path(), "source.kdc", "jdoe", kMail));
  EXPECT_EQ(lost.hits(), 1U);
  EXPECT_EQ(read_file(index), " ");
}

TEST_F(DocumentCopies, StoreAFileBesideItsVersions) {
  EXPECT_TRUE(vu_storage::copyToStorage(source, "jdoe", "source.kdc", kMail, true, 5));
  write_file(source, "d");
  EXPECT_TRUE(client.copyFileToStorage(scratch.path(), "source.kdc", "jdoe", kMail));
  EXPECT_EQ(stored("source.kdc", kMail, 5), "abc");
  EXPECT_EQ(stored("source.kdc", kMail, 0), "d");
}

TEST_F(DocumentCopies, StoreAFileOfTheCorporateAreaInItsBucket) {
  write_file(scratch.path("a"), "abc");
  EXPECT_TRUE(client.copyFileToStorage(scratch.path(), "a", "jdoe", kDocs));
  EXPECT_EQ(read_file(area("docs") + "\\jdoe\\00000097\\00000001"), "abc");
}

TEST_F(DocumentCopies, StoreAFileForAUtf8OwnerByteForByte) {
  EXPECT_TRUE(
      client.copyFileToStorage(scratch.path(), "source.kdc", vu_utf8string("jos\xC3\xA9"), kMail));
  EXPECT_TRUE(client.IsFileExist("jos\xC3\xA9", "source.kdc", kMail, 0, nullptr, nullptr));
}

TEST_F(DocumentCopies, StoreAFileInTheUserArea) {
  EXPECT_TRUE(client.copyFileToUserPath(scratch.path(), "source.kdc", "jdoe"));
  EXPECT_EQ(read_file(area("user") + "\\jdoe\\00000001.kdc"), "abc");
}

TEST_F(DocumentCopies, LeaveAnEmptyEntryForAFileThatIsMissing) {
  EXPECT_FALSE(client.copyFileToStorage(scratch.path(), "none.kdc", "jdoe", kMail));
  EXPECT_EQ(stored("none.kdc", kMail, 0), "");
  EXPECT_EQ(read_file(area("mail") + "\\jdoe\\index.dat"), "none.kdc_0000000000/00000001\n");
}

// ---- exceptions --------------------------------------------------------------------------------

TEST_F(DocumentCopies, FailWhenTheSystemCannotCopy) {
  EXPECT_TRUE(vu_storage::copyToStorage(source, "jdoe", "x.kdc", kMail, true, 0));
  sink.clear();
  const auto full = faults::fail(faults::Call::copy, kRefused, 1, faults::Times::kLasting);
  EXPECT_FALSE(vu_storage::copyToStorage(source, "jdoe", "x.kdc", kMail, true, 0));
  EXPECT_FALSE(vu_storage::copyFromStorage(scratch.path("target"), "jdoe", "x.kdc", kMail, 0));
  EXPECT_FALSE(client.copyFileToStorage(scratch.path(), "source.kdc", "jdoe", kMail));
  EXPECT_EQ(full.hits(), 3U);
  EXPECT_TRUE(facade(trace_event::error).empty());
}

TEST_F(DocumentCopies, LetExceptionsOfTheInitialisationPass) {
  Peer::reset();
  FailingTemporaryFiles failing{std::runtime_error("no folder")};
  vu_host::install({&sink, nullptr, &failing, nullptr});
  EXPECT_THROW(vu_storage::copyToStorage(source, "jdoe", "x.kdc", kMail, true, 0),
               std::runtime_error);
  EXPECT_THROW(vu_storage::copyFromStorage(source, "jdoe", "x.kdc", kMail, 0), std::runtime_error);
  EXPECT_THROW(client.copyFileToStorage(scratch.path(), "source.kdc", "jdoe", kMail),
               std::runtime_error);
  EXPECT_TRUE(facade(trace_event::error).empty());
  vu_host::install({&sink});
}

TEST_F(DocumentCopies, LetExceptionsOfTheFolderAndTheIndexPass) {
  {
    const auto raised = faults::throw_from(faults::Call::probe_search, vu_file_except("area"));
    EXPECT_THROW(client.copyFileToUserPath(scratch.path(), "source.kdc", "jdoe"), vu_file_except);
  }
  EXPECT_TRUE(client.copyFileToUserPath(scratch.path(), "source.kdc", "jdoe"));
  sink.clear();
  {
    const auto broken = faults::fail(faults::Call::read, kRefused);
    EXPECT_THROW(client.copyFileToUserPath(scratch.path(), "source.kdc", "jdoe"), vu_file_except);
  }
  EXPECT_TRUE(facade(trace_event::error).empty());
}

TEST_F(DocumentCopies, GoOnWhenTheFolderIsNotResolved) {
  const auto raised = faults::throw_from(faults::Call::create_directory, vu_file_except("full"));
  EXPECT_THROW(client.copyFileToStorage(scratch.path(), "x.kdc", "new", STG::UserRepository),
               vu_file_except);
  EXPECT_EQ(facade(vu_host::trace_event::error),
            Texts{"vu_storage::createUserOrDomainNameDirectory : full"});
}

}  // namespace
