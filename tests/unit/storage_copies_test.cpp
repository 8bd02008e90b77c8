// Copies between the storage and ordinary paths.

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <initializer_list>
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

  /// The bytes of a version, or "(none)".
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

// Whether a sub-part can be used, must be copied from its preload copy, or must be generated again.

using os::faults::Call;
using vu_host::trace_event;
using vu_host::trace_level;
using Peer = vu_storage_test_peer;

constexpr std::int64_t kNone = -1;
constexpr std::int64_t kSignBit = std::int64_t{1} << 31;
constexpr std::int64_t kWrap = std::int64_t{1} << 32;

struct Times {
  const char* what;
  std::int64_t document;
  std::int64_t part;
  std::int64_t preload;
  int way;
};

class UpdateDecision : public SubParts {
 protected:
  /// Checks the decision for files with these times, or without the files.
  void check(std::initializer_list<Times> rows) {
    for (const Times& row : rows) {
      SCOPED_TRACE(row.what);
      std::filesystem::remove_all(native(root()));
      make_folder(root());
      set_modify_time(document(), row.document);
      ASSERT_EQ(get_modify_time(document()), row.document);
      if (row.part != kNone) make_file(root() + "\\xls", "part", row.part);
      if (row.preload != kNone) make_file(root() + "\\preload", "preload", row.preload);
      const Decision d = decide("xls");
      EXPECT_EQ(d.way, row.way);
      EXPECT_EQ(d.part_dir, root() + "\\xls");
      EXPECT_EQ(d.preload_dir, root() + "\\preload");
    }
  }
};

TEST_F(UpdateDecision, ADocumentThatTheIndexDoesNotHoldMustBeRegenerated) {
  make_folder(root());
  std::string part_dir;
  std::string preload_dir;
  vu_storage& facade = facade_object();
  EXPECT_EQ(Peer::getBestUpdateWay(facade, kOwner, "gone.kdc", "xls", kPart, part_dir, preload_dir,
                                   kStamp),
            2);
  EXPECT_EQ(StorageTest::facade(trace_level::xl), Texts{"file gone.kdc does not exist"});
  EXPECT_EQ(Peer::getBestUpdateWay(facade, kOwner, kEntry, "xls", kPart, part_dir, preload_dir, 43),
            2);
  EXPECT_EQ(
      Peer::getBestUpdateWay(facade, "amy", kEntry, "xls", kPart, part_dir, preload_dir, kStamp),
      2);
  EXPECT_EQ(Peer::getBestUpdateWay(facade, "", kEntry, "xls", kPart, part_dir, preload_dir, kStamp),
            2);
  EXPECT_EQ(StorageTest::facade(trace_level::xl),
            (Texts{"file gone.kdc does not exist", "file sales.kdc does not exist",
                   "file sales.kdc does not exist", "file sales.kdc does not exist"}));
  EXPECT_EQ(part_dir, "");
  EXPECT_EQ(preload_dir, "");
}

TEST_F(UpdateDecision, ADocumentWithoutATimeIsAnUnknownError) {
  make_file(root() + "\\xls", "part", 5000);
  set_modify_time(document(), 0);
  const Decision d = decide("xls");
  EXPECT_EQ(d.way, -1);
  EXPECT_EQ(d.part_dir, "");
}

TEST_F(UpdateDecision, WithoutARootThePartMustBeRegeneratedAndNothingIsMade) {
  const Texts before = list_folder(std::string(document(), 0, document().rfind('\\')));
  const Decision d = decide("html@p1");
  EXPECT_EQ(d.way, 2);
  EXPECT_EQ(d.part_dir, "");
  EXPECT_EQ(list_folder(std::string(document(), 0, document().rfind('\\'))), before);
}

TEST_F(UpdateDecision, ADocumentOfTheKindKdfIsUpToDateOnceItsFoldersExist) {
  store("table.kdf");
  EXPECT_EQ(decide("html@p1").way, 2);
  make_file(root() + "\\html\\preload", "preload", 9000);
  const Decision d = decide("html@p1");
  EXPECT_EQ(d.way, 0);
  EXPECT_EQ(d.part_dir, root() + "\\html\\p1");
  EXPECT_EQ(d.preload_dir, "");
  EXPECT_TRUE(folder_exists(root() + "\\html\\p1"));

  // The times of an older sub-part and of the preload copy are not read.
  make_file(root() + "\\html\\p1", "part", 1);
  sink.clear();
  EXPECT_EQ(decide("html@p1").way, 0);
  EXPECT_EQ(sink.count(trace_event::warning), 0U);
}

TEST_F(UpdateDecision, OnlyTheExtensionKdfAsItIsSpelledCounts) {
  for (const char* entry : {"table.KDF", "kdf", "table.kdf.kdc", "table.xkdf"}) {
    SCOPED_TRACE(entry);
    store(entry);
    make_folder(root());
    EXPECT_EQ(decide("xls").way, 2);
  }
  store("archive.kdc.kdf");
  make_folder(root());
  EXPECT_EQ(decide("xls").way, 0);
}

TEST_F(UpdateDecision, TimesDecideBetweenThePartThePreloadCopyAndTheDocument) {
  check({
      {"part older than its preload copy", 1000, 1500, 2000, 1},
      {"also when it is newer than the document", 1000, 1999, 2000, 1},
      {"also when the preload copy is older than the document", 3000, 1500, 2000, 1},
      {"no part, but a preload copy", 1000, kNone, 2000, 1},
      {"no part, but an old preload copy", 3000, kNone, 2000, 1},
      {"part as old as its preload copy and newer than the document", 1000, 2000, 2000, 0},
      {"part as old as both", 2000, 2000, 2000, 0},
      {"part newer than both", 1000, 3000, 2000, 0},
      {"part as old as the document, no preload copy", 1000, 1000, kNone, 0},
      {"part newer than the document, no preload copy", 1000, 1001, kNone, 0},
      {"part older than the document, no preload copy", 1000, 999, kNone, 2},
      {"part as old as its preload copy and older than the document", 3000, 2000, 2000, 2},
      {"neither part nor preload copy", 1000, kNone, kNone, 2},
  });
}

TEST_F(UpdateDecision, From2038OnTheSignOfTheLow32BitsCounts) {
  check({
      {"a document of 2038 is older than no part", kSignBit, kNone, kNone, 0},
      {"a document of 2038 is older than a part of 1970", kSignBit, 1, kNone, 0},
      {"a part of 2038 is older than a document before", 1000, kSignBit, kSignBit, 2},
      {"a part of 2038 is older than no preload copy", 1000, kSignBit, kNone, 1},
      {"a part of 2038 is older than a preload copy before", 1000, kSignBit, 5, 1},
      {"a preload copy of 2038 is older than no part", 1000, kNone, kSignBit, 2},
      {"the last second before is the newest", 1000, kSignBit - 1, kSignBit, 0},
  });
}

TEST_F(UpdateDecision, From2106OnTheLow32BitsBeginAgain) {
#if defined(_WIN32)
  // Wine stores no time beyond 32 bits; Windows does.
  set_modify_time(document(), kWrap);
  if (get_modify_time(document()) != kWrap) GTEST_SKIP() << "no time of 2106 can be set here";
#endif
  check({
      {"a part of 2106 counts from 1970 on", 1000, kWrap + 999, kNone, 2},
      {"a part of 2106 counts from 1970 on", 1000, kWrap + 1000, kNone, 0},
      {"a document of 2106 counts from 1970 on", kWrap + 1000, 1000, kNone, 0},
      {"a preload copy of 2106 counts from 1970 on", 1000, 1500, kWrap + 1500, 0},
      {"a preload copy of 2106 counts from 1970 on", 1000, 1500, kWrap + 1501, 1},
  });
  set_modify_time(document(), kWrap);
  ASSERT_EQ(get_modify_time(document()), kWrap);
  EXPECT_EQ(decide("xls").way, -1);
}

TEST_F(UpdateDecision, AnExceptionMakesThePartCountAsUpToDate) {
  make_file(root() + "\\xls", "part", 500);
  // The last three calls for a time are for the document, the preload copy and the sub-part.
  const std::uint64_t last = calls_of(Call::stat, [&] { EXPECT_EQ(decide("xls").way, 2); });
  ASSERT_GE(last, 3U);
  for (const std::uint64_t back : {2U, 1U, 0U}) {
    SCOPED_TRACE(back);
    const std::string part_dir = back == 2 ? "" : root() + "\\xls";
    {
      sink.clear();
      const auto fault =
          os::faults::throw_from(Call::stat, vu_file_except("planned text"), last - back);
      const Decision d = decide("xls");
      EXPECT_EQ(d.way, 0);
      EXPECT_EQ(d.part_dir, part_dir);
      EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::getBestUpdateWay : planned text"});
    }
    sink.clear();
    const auto fault =
        os::faults::throw_from(Call::stat, std::runtime_error("planned"), last - back);
    EXPECT_EQ(decide("xls").way, 0);
    EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::getBestUpdateWay : unknown error"});
  }
}

TEST_F(UpdateDecision, AFolderThatCannotBeCreatedDoesNotChangeTheDecision) {
  make_folder(root());
  const auto fault =
      os::faults::fail(Call::create_directory, kRefused, 1, os::faults::Times::kLasting);
  const Decision d = decide("html@p1");
  EXPECT_EQ(d.way, 2);
  EXPECT_EQ(d.part_dir, root() + "\\html\\p1");
  EXPECT_EQ(fault.hits(), 2U);
}

}  // namespace
