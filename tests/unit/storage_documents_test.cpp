#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>

#include "platform/os/os.h"
#include "tests/support/os_faults.h"
#include "tests/support/scratch.h"
#include "tests/unit/c_interface_fixture.h"
#include "tests/unit/storage_fixture.h"
#include "vu/storage.h"
#include "vu_storage.h"

// Opening documents. Queries, reading, writing and closing: storage_questions_test.cpp. Copies:
// storage_copies_test.cpp.

namespace {

using vu_host::trace_event;
using vu_host::trace_level;
namespace faults = os::faults;

constexpr auto kUser = STG::UserRepository;
constexpr auto kUserFiles = STG::UserFilesRepository;
constexpr auto kDocs = STG::CorporateRepository;
constexpr auto kMail = STG::MailRepository;
constexpr auto kMailFiles = STG::MailFilesRepository;

TEST_F(Documents, AreReadBackAsTheyWereStored) {
  const std::string bytes("line\r\n\0\xFF", 8);
  for (const STG::RepositoryType type : {kUser, kUserFiles, kDocs, kMail, kMailFiles}) {
    store("x.kdc", type, 0, bytes);
    EXPECT_EQ(fetch("x.kdc", type, 0), bytes) << type;
  }
}

TEST_F(Documents, AreOpenedForReadingWithTheRequestedOptions) {
  const std::string path = store("x.kdc", kDocs, 0, "abc");
  set_modify_time(path, 1'500'000'000);
  sink.clear();
  EXPECT_EQ(fetch("x.kdc", kDocs, 1'400'000'000), "abc");
  EXPECT_EQ(sink.scopes(trace_level::xs), Texts{"vu_storage::OpenRead"});
  EXPECT_EQ(facade(trace_level::s),
            Texts{"strUserOrDomainName :jdoe , \t strEntry : x.kdc , \t timestamp : 1400000000"});
  EXPECT_EQ(facade(trace_level::m), Texts{"timestamp required = 1400000000, found = 1500000000"});
  EXPECT_TRUE(facade(trace_event::error).empty());
}

TEST_F(Documents, WithoutANameAreNotOpened) {
  EXPECT_EQ(fetch("", kUser, 0), "(closed)");
  EXPECT_TRUE(list_folder(area("user")).empty());
  EXPECT_EQ(facade(trace_level::s),
            Texts{"strUserOrDomainName :jdoe , \t strEntry :  , \t timestamp : 0"});
  // The result is the same if the folder exists, without any system call.
  store("x.kdc", kUser, 0, "abc");
  EXPECT_EQ(calls_of(faults::Call::any, [&] { EXPECT_EQ(fetch("", kUser, 0), "(closed)"); }), 0U);
}

TEST_F(Documents, OfAnUnknownOwnerAreNotOpened) {
  EXPECT_EQ(fetch("x.kdc", kDocs, 0), "(closed)");
  EXPECT_EQ(fetch("x.kdc", kMail, 0), "(closed)");
  EXPECT_TRUE(list_folder(area("docs")).empty());
  EXPECT_TRUE(list_folder(area("mail")).empty());
}

TEST_F(Documents, OfOtherNamesAreNotOpened) {
  store("x.kdc", kUser, 0, "abc");
  EXPECT_EQ(fetch("y.kdc", kUser, 0), "(closed)");
}

TEST_F(Documents, OfTheCorporateAreaMustBeAsNewAsRequested) {
  const std::string path = store("x.kdc", kDocs, 0, "abc");
  set_modify_time(path, 1'000'000);
  EXPECT_EQ(fetch("x.kdc", kDocs, 1'000'001), "(closed)");
  EXPECT_EQ(fetch("x.kdc", kDocs, 1'000'000), "abc");
  EXPECT_EQ(fetch("x.kdc", kDocs, 999'999), "abc");
  EXPECT_EQ(fetch("x.kdc", kDocs, -5), "abc");
}

TEST_F(Documents, OfTheCorporateAreaStoredWithATimestampAreNotFoundByName) {
  store("x.kdc", kDocs, 7, "abc");
  EXPECT_EQ(fetch("x.kdc", kDocs, 7), "(closed)");
  EXPECT_EQ(fetch("x.kdc", kDocs, 0), "(closed)");
}

TEST_F(Documents, OfTheVersionedKindMustMatchExactly) {
  const std::string path = store("x.kdf", kDocs, 1'000, "abc");
  EXPECT_EQ(fetch("x.kdf", kDocs, 1'000), "abc");
  EXPECT_EQ(fetch("x.kdf", kDocs, 999), "(closed)");
  EXPECT_EQ(fetch("x.kdf", kDocs, 1'001), "(closed)");
  EXPECT_EQ(fetch("x.kdf", kDocs, 0), "(closed)");
  // The time of the file has no effect.
  set_modify_time(path, 5);
  EXPECT_EQ(fetch("x.kdf", kDocs, 1'000), "abc");
  EXPECT_EQ(fetch("x.kdf", kDocs, 5), "(closed)");
}

TEST_F(Documents, AreVersionedByTheExactExtensionInTheCorporateAreaAlone) {
  set_modify_time(store("x.KDF", kDocs, 0, "abc"), 2'000);
  EXPECT_EQ(fetch("x.KDF", kDocs, 1'000), "abc");
  EXPECT_EQ(fetch("x.KDF", kDocs, 2'001), "(closed)");
  set_modify_time(store("kdf", kDocs, 0, "def"), 2'000);
  EXPECT_EQ(fetch("kdf", kDocs, 1'000), "def");
  store("x.kdf", kMail, 0, "ghi");
  EXPECT_EQ(fetch("x.kdf", kMail, 1'000), "ghi");
  store("y.kdf", kMail, 1'000, "jkl");
  EXPECT_EQ(fetch("y.kdf", kMail, 1'000), "(closed)");
}

TEST_F(Documents, OfTheOtherAreasAreServedWhateverTheirAge) {
  for (const STG::RepositoryType type : {kUser, kUserFiles, kMail, kMailFiles}) {
    set_modify_time(store("x.kdc", type, 0, "abc"), 5);
    EXPECT_EQ(fetch("x.kdc", type, 1'000'000), "abc") << type;
    EXPECT_EQ(fetch("x.kdc", type, 2'147'483'647), "abc") << type;
  }
}

TEST_F(Documents, FromTheFirstSecondOfTimeAreNotOpened) {
  const std::string path = store("x.kdc", kUser, 0, "abc");
  set_modify_time(path, 0);
  sink.clear();
  EXPECT_EQ(fetch("x.kdc", kUser, 0), "(closed)");
  EXPECT_TRUE(facade(trace_level::m).empty());
  set_modify_time(path, 1);
  EXPECT_EQ(fetch("x.kdc", kUser, 0), "abc");
}

TEST_F(Documents, HaveTimesOf32Bits) {
  const std::string path = store("x.kdc", kDocs, 0, "abc");
  set_modify_time(path, 2'147'483'648);
  sink.clear();
  EXPECT_EQ(fetch("x.kdc", kDocs, 0), "(closed)");
  EXPECT_EQ(facade(trace_level::m), Texts{"timestamp required = 0, found = -2147483648"});
  EXPECT_EQ(fetch("x.kdc", kDocs, std::numeric_limits<std::int32_t>::min()), "abc");
}

TEST_F(Documents, AreLookedUpWithTimestampsOf32Bits) {
  store("x.kdf", kDocs, 2'147'483'647, "abc");
  sink.clear();
  // Where `long` has 32 bits, this is the same number.
  EXPECT_EQ(fetch("x.kdf", kDocs, std::numeric_limits<long>::max()), "abc");
  EXPECT_EQ(facade(trace_level::s),
            Texts{"strUserOrDomainName :jdoe , \t strEntry : x.kdf , \t timestamp : 2147483647"});
}

TEST_F(Documents, AreLeftClosedWhenTheyCannotBeOpened) {
  place("x.kdc", "abc");
  sink.clear();
  const auto refused = faults::fail(faults::Call::open, kRefused);
  EXPECT_EQ(fetch("x.kdc", kUser, 0), "(closed)");
  EXPECT_EQ(refused.hits(), 1U);
  EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::OpenRead : throw exception on open"});
}

TEST_F(Documents, AreLeftClosedAfterAnyOtherException) {
  const std::string path = place("x.kdc", "abc");
  sink.clear();
  const auto raised = faults::throw_from(faults::Call::open, std::runtime_error("odd"));
  EXPECT_EQ(fetch("x.kdc", kUser, 0), "(closed)");
  EXPECT_EQ(raised.hits(), 1U);
  EXPECT_EQ(facade(trace_event::error),
            Texts{"vu_storage::OpenRead : Exception when try open file for read : " + path});
}

TEST_F(Documents, AreLeftClosedWhenAskingForTheirLockRaises) {
  place("x.kdc", "abc");
  const auto raised = faults::throw_from(faults::Call::lock, std::runtime_error("odd"));
  vu_file file;
  client.OpenRead(file, "jdoe", "x.kdc", kUser, 0);
  EXPECT_EQ(raised.hits(), 1U);
  EXPECT_FALSE(file.is_open());
}

TEST_F(Documents, AreLeftClosedWhenTheirAreaRaises) {
  {
    const auto raised = faults::throw_from(faults::Call::probe_search, vu_file_except("no answer"));
    EXPECT_EQ(fetch("x.kdc", kUser, 0), "(closed)");
  }
  EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::OpenRead : no answer"});
  sink.clear();
  {
    const auto raised = faults::throw_from(faults::Call::probe_search, 1);
    EXPECT_EQ(fetch("x.kdc", kUser, 0), "(closed)");
  }
  EXPECT_EQ(facade(trace_event::error),
            Texts{"vu_storage::OpenRead : Exception when try open file for read : " + area("user") +
                  "\\"});
}

TEST_F(Documents, AreReadByUtf8NamesByteForByte) {
  const std::string owner = "jos\xC3\xA9";
  const std::string entry = "\xE2\x82\xAC.kdc";
  vu_file file;
  client.OpenWrite(file, vu_utf8string(owner), vu_utf8string(entry), kUser, true, 0);
  ASSERT_TRUE(file.is_open());
  client.Write(file, "abc");
  client.Close(file);

  client.OpenRead(file, owner, entry, kUser, 0);
  EXPECT_TRUE(file.is_open());
  client.Close(file);
  // Names end at the first NUL.
  client.OpenRead(file, vu_utf8string(owner + std::string("\0x", 2)),
                  vu_utf8string(entry + std::string("\0y", 2)), kUser, 0);
  EXPECT_TRUE(file.is_open());
  client.Close(file);
}

TEST_F(Documents, AreOpenedForWritingWithTheirNamesInTheScope) {
  sink.clear();
  vu_file file;
  EXPECT_TRUE(client.OpenWrite2(file, "jdoe", "x.kdc", kUser, false, 0));
  const Texts labels = sink.scopes(trace_level::m);
  ASSERT_FALSE(labels.empty());
  EXPECT_EQ(labels.front(), "vu_storage::OpenWrite: jdoe : x.kdc");
}

TEST_F(Documents, AreStoredUnderAPhysicalNamePerVersion) {
  const std::string first = store("x.kdc", kDocs, 1, "one");
  const std::string second = store("x.kdc", kDocs, 2, "two");
  EXPECT_EQ(first, area("docs") + "\\jdoe\\00000062\\00000001.kdc");
  EXPECT_EQ(second, area("docs") + "\\jdoe\\00000062\\00000002.kdc");
  EXPECT_EQ(read_file(area("docs") + "\\jdoe\\00000062\\index.dat"),
            "x.kdc_0000000001/00000001\nx.kdc_0000000002/00000002\n");
  EXPECT_EQ(read_file(first), "one");
  EXPECT_EQ(read_file(second), "two");
}

TEST_F(Documents, WithoutANameAreNotStored) {
  vu_file file;
  EXPECT_FALSE(client.OpenWrite2(file, "jdoe", "", kUser, true, 0));
  EXPECT_FALSE(file.is_open());
  EXPECT_TRUE(list_folder(area("user")).empty());
}

TEST_F(Documents, ThatExistAreLeftClosedUnlessReplaced) {
  const std::string path = store("x.kdc", kUser, 3, "old");
  vu_file file;
  EXPECT_TRUE(client.OpenWrite2(file, "jdoe", "x.kdc", kUser, false, 3));
  EXPECT_FALSE(file.is_open());
  EXPECT_EQ(read_file(path), "old");

  EXPECT_TRUE(client.OpenWrite2(file, "jdoe", "x.kdc", kUser, true, 3));
  ASSERT_TRUE(file.is_open());
  EXPECT_EQ(file.getFilePath(), path);
  client.Write(file, "n");
  client.Close(file);
  EXPECT_EQ(read_file(path), "n");
}

TEST_F(Documents, ThatAreNewAreOpenedReplacedOrNot) {
  for (const bool replace : {false, true}) {
    vu_file file;
    client.OpenWrite(file, "jdoe", replace ? "a.kdc" : "b.kdc", kMail, replace, 0);
    EXPECT_TRUE(file.is_open()) << replace;
    client.Close(file);
  }
}

TEST_F(Documents, ThatAreReplacedLeaveTheCategoryFilesOfTheUserArea) {
  store("x.kdc", kUserFiles, 0, "old");
  const std::string category = store("mine.ctg", kUserFiles, 0, "x.kdc=1\ny.kdc=2\n");
  vu_file file;
  EXPECT_TRUE(client.OpenWrite2(file, "jdoe", "x.kdc", kUserFiles, false, 0));
  EXPECT_EQ(read_file(category), "x.kdc=1\ny.kdc=2\n");
  // The same folder, but another type.
  EXPECT_TRUE(client.OpenWrite2(file, "jdoe", "x.kdc", kUser, true, 0));
  client.Close(file);
  EXPECT_EQ(read_file(category), "x.kdc=1\ny.kdc=2\n");
  EXPECT_TRUE(client.OpenWrite2(file, "jdoe", "x.kdc", kUserFiles, true, 0));
  client.Close(file);
  EXPECT_EQ(read_file(category), "y.kdc=2\n");
}

TEST_F(Documents, ThatAreReplacedDoNotWaitForTheCallersOwnHandle) {
  store("x.kdc", kUserFiles, 0, "old");
  const std::string category = store("mine.ctg", kUserFiles, 0, "x.kdc=1\ny.kdc=2\n");
  vu_file file(category);
  file.open(vu_file::o_read);
  EXPECT_TRUE(client.OpenWrite2(file, "jdoe", "x.kdc", kUserFiles, true, 0));
  client.Write(file, "new");
  client.Close(file);
  EXPECT_EQ(read_file(category), "y.kdc=2\n");
}

TEST_F(Documents, ThatAreNewStayInTheCategoryFiles) {
  const std::string category = store("mine.ctg", kUserFiles, 0, "x.kdc=1\n");
  store("x.kdc", kUserFiles, 0, "new");
  EXPECT_EQ(read_file(category), "x.kdc=1\n");
}

TEST_F(Documents, ThatAreReplacedInTheCorporateAreaLoseTheirParts) {
  const std::string path = store("x.kdc", kDocs, 5, "old");
  make_folder(path + "_\\html\\page");
  write_file(path + "_\\html\\page\\1", "part");
  make_folder(path + "_17");
  vu_file file;
  EXPECT_TRUE(client.OpenWrite2(file, "jdoe", "x.kdc", kDocs, false, 5));
  EXPECT_TRUE(folder_exists(path + "_"));

  EXPECT_TRUE(client.OpenWrite2(file, "jdoe", "x.kdc", kDocs, true, 5));
  client.Close(file);
  EXPECT_FALSE(file_exists(path + "_"));
  EXPECT_TRUE(folder_exists(path + "_17"));
  EXPECT_TRUE(file_exists(path));
}

TEST_F(Documents, ThatAreReplacedLoseThePartsOfTheStampInForce) {
  const std::string path = store("x.kdc", kDocs, 5, "old");
  make_folder(path + "_");
  make_folder(path + "_17");
  vu_storage::setTdcTimeStamp("17");
  store("x.kdc", kDocs, 5, "new");
  EXPECT_TRUE(folder_exists(path + "_"));
  EXPECT_FALSE(file_exists(path + "_17"));
}

TEST_F(Documents, ThatAreReplacedElsewhereKeepTheirParts) {
  for (const STG::RepositoryType type : {kUser, kUserFiles, kMail}) {
    const std::string path = store("x.kdc", type, 5, "old");
    make_folder(path + "_");
    store("x.kdc", type, 5, "new");
    EXPECT_TRUE(folder_exists(path + "_")) << type;
  }
}

TEST_F(Documents, AreNotStoredWhenTheyCannotBeOpened) {
  const std::string path = place("x.kdc", "old");
  sink.clear();
  const auto refused = faults::fail(faults::Call::open, kRefused);
  vu_file file;
  EXPECT_FALSE(client.OpenWrite2(file, "jdoe", "x.kdc", kUser, true, 0));
  EXPECT_EQ(refused.hits(), 1U);
  EXPECT_FALSE(file.is_open());
  EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::OpenWrite : throw exception on open"});
  EXPECT_EQ(read_file(path), "old");
}

TEST_F(Documents, AreNotStoredAfterAnyOtherException) {
  place("x.kdc", "old");
  sink.clear();
  const auto raised = faults::throw_from(faults::Call::open, std::runtime_error("odd"));
  vu_file file;
  EXPECT_FALSE(client.OpenWrite2(file, "jdoe", "x.kdc", kUser, true, 0));
  EXPECT_EQ(raised.hits(), 1U);
  EXPECT_FALSE(file.is_open());
  EXPECT_EQ(facade(trace_event::error),
            Texts{"vu_storage::OpenWrite : Can't open file for write : x.kdc"});
}

TEST_F(Documents, AreNotLeftOpenForWritingWhenAskingForTheirLockRaises) {
  place("x.kdc", "old");
  const auto raised = faults::throw_from(faults::Call::lock, std::runtime_error("odd"));
  vu_file file;
  EXPECT_FALSE(client.OpenWrite2(file, "jdoe", "x.kdc", kUser, true, 0));
  EXPECT_EQ(raised.hits(), 1U);
  EXPECT_FALSE(file.is_open());
}

TEST_F(Documents, AreNotStoredWhenTheirAreaRaises) {
  const auto raised = faults::throw_from(faults::Call::probe_search, vu_file_except("no answer"));
  vu_file file;
  EXPECT_FALSE(client.OpenWrite2(file, "jdoe", "x.kdc", kUser, true, 0));
  EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::OpenWrite : no answer"});
}

TEST_F(Documents, AreNotStoredWhereTheFolderCannotBeMade) {
  const auto full =
      faults::fail(faults::Call::create_directory, kRefused, 1, faults::Times::kLasting);
  vu_file file;
  // The folder is not checked again: the failure shows when the file is created.
  EXPECT_FALSE(client.OpenWrite2(file, "jdoe", "x.kdc", kUser, true, 0));
  EXPECT_EQ(full.hits(), 1U);
  EXPECT_FALSE(file.is_open());
  EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::OpenWrite : throw exception on open"});
}

TEST_F(Documents, AreNotReplacedWhenTheCategoriesRaise) {
  store("x.kdc", kUserFiles, 0, "old");
  sink.clear();
  // The second open reads the index for its category files.
  const auto refused = faults::fail(faults::Call::open, kRefused, 2);
  vu_file file;
  EXPECT_FALSE(client.OpenWrite2(file, "jdoe", "x.kdc", kUserFiles, true, 0));
  EXPECT_EQ(refused.hits(), 1U);
  EXPECT_FALSE(file.is_open());
  EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::OpenWrite : throw exception on open"});
}

// The C interface finds out why OpenRead() has opened nothing.

constexpr os::Status kMissing{2, os::Failure::kNotFound};

class ServedReads : public CInterfaceTest {
 protected:
  ServedReads() {
    m_dated.version = 0;
    EXPECT_EQ(put(m_dated, "dated", 0), VU_DONE);
    m_dated.version = 1000;
  }
  vu_status open_served(const vu_document& where) {
    vu_stream* stream = nullptr;
    const vu_status status = vu_open(m_store, &where, VU_READ_SERVED, &stream);
    if (status == VU_DONE) vu_stream_close(stream);
    return status;
  }

  vu_document m_dated = document("a.kdc", VU_AREA_DOCS);
};

TEST_F(ServedReads, EndAtOnceIfTheTimeStaysUnknown) {
  for (const vu_document& where : {m_document, m_dated}) {
    for (const os::Status& first : {kRefused, kMissing}) {
      for (FaultNumber nth;; ++nth) {
        const auto one = faults::fail(Call::stat, first, nth);
        const auto later = faults::fail(Call::stat, kRefused, nth + 1, Times::kLasting);
        const vu_status status = open_served(where);
        if (one.hits() == 0) break;
        EXPECT_TRUE(status == VU_FAILED || later.hits() == 0) << nth << vu_status_name(status);
        EXPECT_LT(later.hits(), 10U) << nth;
      }
    }
  }
}

TEST_F(ServedReads, LookAgainForAFileThatIsGone) {
  for (const vu_document& where : {m_document, m_dated}) {
    for (const os::Status& second : {kMissing, kRefused}) {
      bool is_hit = true;
      for (FaultNumber nth; is_hit; ++nth) {
        for (std::uint64_t next = nth + 1; next < nth + 6; ++next) {
          const auto one = faults::fail(Call::stat, kMissing, nth);
          const auto other = faults::fail(Call::stat, second, next);
          const vu_status status = open_served(where);
          is_hit = one.hits() != 0;
          EXPECT_NE(status, VU_OUTDATED) << nth << " and " << next;
          EXPECT_TRUE(status != VU_FAILED || second.failure() == os::Failure::kOther);
        }
      }
    }
  }
}

}  // namespace
