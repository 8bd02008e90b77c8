#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <stdexcept>
#include <string>

#include "tests/unit/sub_parts_fixture.h"

// Whether a part can be used, is to be taken from its preload copy, or must be made anew.

namespace {

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
  /// Decides for files of these times, or without them.
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

  // Neither an older part nor the preload copy is asked for its time.
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
  // Wine keeps no time beyond 32 bits; Windows does.
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
  // The last three questions for a time are those for the document, the preload copy and the part.
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

TEST_F(UpdateDecision, AFolderThatCannotBeMadeIsNoObstacleToTheDecision) {
  make_folder(root());
  const auto fault =
      os::faults::fail(Call::create_directory, kRefused, 1, os::faults::Times::kLasting);
  const Decision d = decide("html@p1");
  EXPECT_EQ(d.way, 2);
  EXPECT_EQ(d.part_dir, root() + "\\html\\p1");
  EXPECT_EQ(fault.hits(), 2U);
}

}  // namespace
