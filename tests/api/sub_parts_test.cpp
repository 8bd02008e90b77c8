#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tests/api/program_storage.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "vu_storage.h"

// Parts of documents as a client uses them, through the exported interface alone.

namespace {

using Texts = std::vector<std::string>;
using vu_host::trace_event;

constexpr auto kDocs = STG::CorporateRepository;
constexpr const char* kEntry = "sales.kdc";
constexpr const char* kPart = "page1.htm";

class SubPartClient : public testing::Test {
 protected:
  ~SubPartClient() override { vu_storage::setTdcTimeStamp(""); }

  /// Stores the document; the path of its file.
  std::string store(const std::string& entry, std::int64_t time) {
    vu_file file;
    facade.OpenWrite(file, owner, entry, kDocs, true, 7);
    EXPECT_TRUE(file.is_open());
    facade.Write(file, "document");
    std::string path = file.getFilePath();
    facade.Close(file);
    set_modify_time(path, time);
    return path;
  }

  bool store_part(const std::string& entry, const std::string& selector, const std::string& bytes) {
    vu_file file;
    facade.OpenWriteSubPart(file, owner, entry, selector, kPart, 7);
    if (!file.is_open()) return false;
    facade.Write(file, bytes);
    facade.Close(file);
    return true;
  }

  std::string fetch_part(const std::string& entry, const std::string& selector) {
    vu_file file;
    facade.OpenReadSubPart(file, "reader", owner, entry, selector, kPart, 7);
    if (!file.is_open()) return "(closed)";
    std::string bytes;
    facade.Read(file, bytes, 0);
    facade.Close(file);
    return bytes;
  }

  /// Initialised before the facade's object, which would do so elsewhere.
  const std::string root = program_storage();
  vu_storage facade;
  /// One of its own for every test.
  const std::string owner =
      std::string("parts of ") + testing::UnitTest::GetInstance()->current_test_info()->name();
};

TEST_F(SubPartClient, StoresPartsAndIsServedThemUntilTheDocumentIsNewer) {
  EXPECT_EQ(fetch_part(kEntry, "html@p1"), "(closed)");
  const std::string document = store(kEntry, 1'000'000'000);
  for (const std::string selector : {"html@p1", "pdf@p1", "xls"}) {
    SCOPED_TRACE(selector);
    EXPECT_EQ(fetch_part(kEntry, selector), "(closed)");
    EXPECT_TRUE(store_part(kEntry, selector, "for " + selector));
    EXPECT_EQ(fetch_part(kEntry, selector), "for " + selector);
  }
  EXPECT_EQ(list_folder(document + "_"), (Texts{"html", "pdf", "xls"}));

  set_modify_time(document + "_\\html\\p1\\" + kPart, 1'000'000'000);
  EXPECT_EQ(fetch_part(kEntry, "html@p1"), "for html@p1");
  set_modify_time(document, 1'000'000'001);
  EXPECT_EQ(fetch_part(kEntry, "html@p1"), "(closed)");
  EXPECT_EQ(fetch_part(kEntry, "xls"), "for xls");
}

TEST_F(SubPartClient, LosesThePartsOfADocumentThatItReplaces) {
  const std::string document = store(kEntry, 1'000'000'000);
  EXPECT_TRUE(store_part(kEntry, "html@p1", "part"));
  EXPECT_EQ(store(kEntry, 1'000'000'000), document);
  EXPECT_EQ(fetch_part(kEntry, "html@p1"), "(closed)");
  EXPECT_FALSE(folder_exists(document + "_"));
}

TEST_F(SubPartClient, KeepsPartsOfDifferentStampsApart) {
  const std::string document = store(kEntry, 1'000'000'000);
  EXPECT_TRUE(store_part(kEntry, "xls", "without"));
  vu_storage::setTdcTimeStamp("2024");
  EXPECT_EQ(fetch_part(kEntry, "xls"), "(closed)");
  EXPECT_TRUE(store_part(kEntry, "xls", "with"));
  EXPECT_EQ(fetch_part(kEntry, "xls"), "with");
  EXPECT_TRUE(folder_exists(document + "_2024\\xls"));
  vu_storage::setTdcTimeStamp("");
  EXPECT_EQ(fetch_part(kEntry, "xls"), "without");
}

TEST_F(SubPartClient, IsServedANewerPreloadCopy) {
  const std::string document = store(kEntry, 1'000'000'000);
  EXPECT_TRUE(store_part(kEntry, "html@p1", "part"));
  set_modify_time(document + "_\\html\\p1\\" + kPart, 1'000'000'100);
  make_folder(document + "_\\html\\preload");
  write_file(document + "_\\html\\preload\\" + kPart, "preloaded");
  set_modify_time(document + "_\\html\\preload\\" + kPart, 1'000'000'200);

  const recording_sink sink;
  EXPECT_EQ(fetch_part(kEntry, "html@p1"), "preloaded");
  EXPECT_EQ(fetch_part(kEntry, "html@p1"), "preloaded");
  EXPECT_EQ(sink.count(trace_event::success, "case 1: Doc must be updated from preload"), 1U);
  EXPECT_EQ(sink.count(trace_event::success, "case 0 : Doc is up to date"), 1U);
}

TEST_F(SubPartClient, WritesAndReadsASelectorOfAnotherKindInDifferentFolders) {
  const std::string document = store(kEntry, 1'000'000'000);
  EXPECT_TRUE(store_part(kEntry, "a@b", "part"));
  EXPECT_EQ(read_file(document + "_\\a\\b\\" + kPart), "part");
  EXPECT_EQ(fetch_part(kEntry, "a@b"), "(closed)");
  EXPECT_EQ(list_folder(document + "_"), (Texts{"a", "a@b"}));
}

TEST_F(SubPartClient, IsServedThePartOfATableWhateverItsAge) {
  const std::string document = store("table.kdf", 2'000'000'000);
  EXPECT_TRUE(store_part("table.kdf", "xls", "part"));
  set_modify_time(document + "_\\xls\\" + kPart, 1);
  EXPECT_EQ(fetch_part("table.kdf", "xls"), "part");
}

TEST_F(SubPartClient, IsToldTheSizeOfAPartAndZeroWithoutOne) {
  store(kEntry, 1'000'000'000);
  vu_file file;
  unsigned long size = 77;
  facade.OpenReadSubPartEx(file, "reader", owner, kEntry, "xls", kPart, 7, size);
  EXPECT_FALSE(file.is_open());
  EXPECT_EQ(size, 0UL);
  EXPECT_TRUE(store_part(kEntry, "xls", "12345"));
  facade.OpenReadSubPartEx(file, vu_utf8string("reader"), vu_utf8string(owner),
                           vu_utf8string(kEntry), "xls", kPart, 7, size);
  EXPECT_TRUE(file.is_open());
  EXPECT_EQ(size, 5UL);
}

TEST_F(SubPartClient, CannotStoreAPartOfAnUnknownVersion) {
  store(kEntry, 1'000'000'000);
  const recording_sink sink;
  vu_file file;
  facade.OpenWriteSubPart(file, vu_utf8string(owner), vu_utf8string(kEntry), "xls", kPart, 8);
  EXPECT_FALSE(file.is_open());
  EXPECT_EQ(sink.events(trace_event::error),
            Texts{"OpenWriteSubPart : entry not found ! entry=sales.kdc TS=8"});
}

}  // namespace
