#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <string>

#include "platform/os/os.h"
#include "tests/support/recording_sink.h"
#include "tests/unit/index_fixture.h"

// The public operations, seen at the seam and in the traces. Their results:
// tests/api/index_test.cpp. The existence query: index_exists_test.cpp.

namespace {

using os::faults::Call;
using os::faults::Times;
using AgeMap = STGIndex::AgeMap;
using Peer = stg_index_test_peer;
using NameMap = STGIndex::NameMap;
using vu_host::trace_event;

class IndexCreating : public IndexOperations {};

TEST_F(IndexCreating, WritesTheIndexBeforeItReturns) {
  recording_sink sink;
  EXPECT_EQ(STGIndex::create(folder.path(), "a.kdb", 5), "00000001.kdb");
  EXPECT_EQ(folder.index(), "a.kdb_0000000005/00000001\n");
  EXPECT_EQ(folder.read("00000001.kdb"), "");
  EXPECT_EQ(sink.count(trace_event::error), 0U);
  EXPECT_TRUE(index_is_free());
}

TEST_F(IndexCreating, ChangesNothingWhereTheEntryExists) {
  folder.write("00000001.kdb", "data");
  folder.write("index", "00000001");
  folder.set_index("a.kdb_0000000005/00000001\n");
  set_modify_time(folder.path("index.dat"), 1000);
  const auto before = folder.state();
  EXPECT_EQ(STGIndex::create(folder.path(), "a.kdb", 5), "00000001.kdb");
  EXPECT_EQ(folder.state(), before);
}

TEST_F(IndexCreating, GivesTheNameOfAFileThatBearsTheLogicalName) {
  folder.write("a.kdb");
  EXPECT_EQ(STGIndex::create(folder.path(), "a.kdb", 5), "a.kdb");
  EXPECT_EQ(STGIndex::getPhysicalName(folder.path(), "a.kdb"), "a.kdb");
  EXPECT_EQ(folder.names(), (Texts{"a.kdb"}));
}

TEST_F(IndexCreating, MakesTheFileThatOnlyTheLineHad) {
  folder.write("00000001", "stored");
  folder.set_index("a.kdb_0000000005/00000001\n");
  EXPECT_EQ(STGIndex::create(folder.path(), "a.kdb", 5), "00000001.kdb");
  EXPECT_EQ(folder.read("00000001.kdb"), "");
  EXPECT_EQ(folder.index(), "a.kdb_0000000005/00000001\n");
}

TEST_F(IndexCreating, DrawsANewNumberWhereTheFileHasGone) {
  EXPECT_EQ(STGIndex::create(folder.path(), "a.kdb", 5), "00000001.kdb");
  folder.erase("00000001.kdb");
  EXPECT_EQ(STGIndex::create(folder.path(), "a.kdb", 5), "00000002.kdb");
  EXPECT_EQ(folder.index(), "a.kdb_0000000005/00000002\n");
}

TEST_F(IndexCreating, RaisesInAFolderThatIsMissing) {
  EXPECT_THROW(STGIndex::create(folder.path("missing"), "a.kdb", 5), vu_file_except);
  EXPECT_THROW(STGIndex::getPhysicalName(folder.path("missing"), "a.kdb"), vu_file_except);
  EXPECT_THROW(STGIndex::getPhysicalPath(folder.path("missing"), "a.kdb"), vu_file_except);
}

TEST_F(IndexCreating, RaisesWhereTheIndexCannotBeOpened) {
  folder.set_index(" ");
  recording_sink sink;
  const auto fault = os::faults::fail(Call::open, kRefused, 1, Times::kLasting);
  EXPECT_THROW(STGIndex::create(folder.path(), "a.kdb", 5), vu_file_except);
  EXPECT_EQ(sink.count(trace_event::warning, cannot_open("a.kdb", "throw exception on open")), 1U);
}

TEST_F(IndexCreating, CreatesTheFileEvenIfTheSystemCannotCheckWhetherItExists) {
  folder.set_index(" ");
  // Earlier calls: for the logical name and for the index, by the query and by the load.
  const auto fault = os::faults::fail(Call::probe_search, kRefused, 4);
  EXPECT_EQ(STGIndex::create(folder.path(), "a.kdb", 5), "00000001.kdb");
  EXPECT_EQ(fault.hits(), 1U);
  EXPECT_TRUE(folder.has("00000001.kdb"));
  EXPECT_EQ(folder.index(), "a.kdb_0000000005/00000001\n");
}

TEST_F(IndexCreating, ReturnsTheNameOfAnUnknownEntry) {
  const std::string text = "a.kdb_0000000005/00000007\nn.txt_0000000000/n.txt\n";
  folder.set_index(text);
  const auto fault = os::faults::fail(Call::probe_search, kRefused, 3, Times::kLasting);
  EXPECT_EQ(STGIndex::create(folder.path(), "a.kdb", 5), "00000007.kdb");
  EXPECT_EQ(STGIndex::create(folder.path(), "n.txt", 0), "n.txt");
  EXPECT_FALSE(folder.has("00000007.kdb"));
  EXPECT_EQ(folder.index(), text);
}

TEST_F(IndexCreating, RaisesWhatTheRewriteRaises) {
  folder.set_index(" ");
  {
    // Earlier reads: by the query, by the load, and of the empty counter.
    const auto fault = os::faults::fail(Call::read, kRefused, 4);
    EXPECT_THROW(STGIndex::create(folder.path(), "a.kdb", 5), vu_file_except);
    EXPECT_EQ(fault.hits(), 1U);
  }
  EXPECT_TRUE(index_is_free());
  EXPECT_EQ(folder.index(), " ");
  EXPECT_TRUE(folder.has("00000001.kdb"));
}

TEST_F(IndexCreating, LosesNothingBetweenManyCalls) {
  for (int i = 0; i < 50; ++i) {
    const std::string logical = "doc" + std::to_string(i % 10) + ".kdb";
    const std::string name = STGIndex::create(folder.path(), logical, i / 10);
    write_file(folder.path(name), logical + std::to_string(i / 10));
  }
  EXPECT_EQ(folder.read("index"), "00000050");
  for (int i = 0; i < 50; ++i) {
    const std::string logical = "doc" + std::to_string(i % 10) + ".kdb";
    ASSERT_TRUE(STGIndex::exists(folder.path(), logical, i / 10, physical));
    EXPECT_EQ(folder.read(physical), logical + std::to_string(i / 10));
  }
}

class IndexChanging : public IndexOperations {};

TEST_F(IndexChanging, RemovesAnEntryAndWritesTheIndex) {
  folder.write("00000001.kdb");
  folder.write("00000002.kdb");
  folder.set_index("a.kdb_0000000005/00000001\nb.kdb_0000000005/00000002\n");
  STGIndex::remove(folder.path(), "a.kdb", 5);
  EXPECT_EQ(folder.index(), "b.kdb_0000000005/00000002\n");
  EXPECT_FALSE(folder.has("00000001.kdb"));
  STGIndex::remove(folder.path(), "b.kdb", 5);
  EXPECT_EQ(folder.index(), " ");
}

TEST_F(IndexChanging, RemovesNoFileThatOnlyBearsTheLogicalName) {
  folder.write("a.kdb");
  folder.set_index(" ");
  STGIndex::remove(folder.path(), "a.kdb", 0);
  EXPECT_TRUE(folder.has("a.kdb"));
}

TEST_F(IndexChanging, RemovesAnAdoptedFile) {
  const synchronisation on(true);
  folder.write("a.kdb");
  STGIndex::remove(folder.path(), "a.kdb", 0);
  EXPECT_EQ(folder.names(), (Texts{"index.dat"}));
  EXPECT_EQ(folder.index(), " ");
}

TEST_F(IndexChanging, RenamesNothingOntoItself) {
  os::faults::reset();
  recording_sink sink;
  STGIndex::rename(folder.path("missing"), "a", 1, "a", 1);
  STGIndex::rename(folder.path(), "a", 1, "a", 1);
  EXPECT_EQ(os::faults::calls(Call::any), 0U);
  EXPECT_EQ(index_traces(sink), Texts{});
  EXPECT_FALSE(folder.has_index());
}

TEST_F(IndexChanging, ComparesTimestampsIn32Bits) {
  folder.write("00000001");
  folder.set_index("a_2147483647/00000001\n");
  os::faults::reset();
  // Where `long` has 32 bits, the two timestamps are equal without clamping.
  STGIndex::rename(folder.path(), "a", 2147483647, "a", std::numeric_limits<long>::max());
  EXPECT_EQ(os::faults::calls(Call::any), 0U);
  EXPECT_EQ(folder.index(), "a_2147483647/00000001\n");
}

TEST_F(IndexChanging, RenamesAnEntryAndWritesTheIndex) {
  folder.write("00000001.kdb", "bytes");
  folder.write("00000002.kdb", "other");
  folder.write("index", "00000002");
  folder.set_index("a.kdb_0000000001/00000001\nb.kdb_0000000002/00000002\n");
  STGIndex::rename(folder.path(), "a.kdb", 1, "b.kdb", 2);
  EXPECT_EQ(folder.index(), "b.kdb_0000000002/00000003\n");
  EXPECT_EQ(folder.read("00000003.kdb"), "bytes");
  EXPECT_EQ(folder.names(), (Texts{"00000003.kdb", "index", "index.dat"}));
  EXPECT_EQ(folder.read("index"), "00000003");
}

TEST_F(IndexChanging, LeavesARenameThatFailedAsItWas) {
  folder.write("00000001.kdb", "bytes");
  folder.write("index", "00000001");
  folder.set_index("a.kdb_0000000001/00000001\n");
  recording_sink sink;
  const auto fault = os::faults::fail(Call::copy, kRefused);
  EXPECT_NO_THROW(STGIndex::rename(folder.path(), "a.kdb", 1, "b.kdb", 2));
  EXPECT_EQ(folder.index(), "a.kdb_0000000001/00000001\n");
  EXPECT_EQ(sink.count(trace_event::error,
                       "STGIndex: rename: copy failed: " + folder.path("00000001.kdb")),
            1U);
}

class IndexQueries : public IndexOperations {
 protected:
  std::vector<std::pair<std::string, std::function<void(const std::string&)>>> all_queries() {
    return {
        {"lastVersion",
         [](const std::string& path) {
           long ts = 0;
           STGIndex::lastVersion(path, "a.kdb", ts);
         }},
        {"plValues", [this](const std::string& path) { STGIndex::plValues(path, out); }},
        {"lpValues", [this](const std::string& path) { STGIndex::lpValues(path, out); }},
        {"getCategories", [this](const std::string& path) { STGIndex::getCategories(path, out); }},
        {"getVUDocs", [this](const std::string& path) { STGIndex::getVUDocs(path, out); }}};
  }

  NameMap out;
};

TEST_F(IndexQueries, WriteNothingWhereNothingIsUnknown) {
  folder.write("00000001.kdb");
  folder.set_index("a.kdb_0000000001/00000001\ngone_0000000001/00000002\n");
  set_modify_time(folder.path("index.dat"), 1000);
  const auto before = folder.state();
  for (const bool on : {false, true}) {
    const synchronisation mode(on);
    for (const auto& [name, query] : all_queries()) {
      query(folder.path());
      EXPECT_EQ(folder.state(), before) << name;
    }
  }
}

TEST_F(IndexQueries, MakeNoIndexWithTheSwitchOff) {
  folder.write("stray.txt");
  for (const auto& [name, query] : all_queries()) {
    query(folder.path());
    EXPECT_EQ(folder.names(), (Texts{"stray.txt"})) << name;
  }
}

TEST_F(IndexQueries, AdoptUnknownFilesWithTheSwitchOn) {
  const synchronisation on(true);
  for (const auto& [name, query] : all_queries()) {
    const index_folder fresh;
    fresh.write("stray.txt");
    query(fresh.path());
    EXPECT_EQ(fresh.index(), "stray.txt_0000000000/stray.txt\n") << name;
  }
}

TEST_F(IndexQueries, TraceAFolderThatIsMissing) {
  for (const auto& [name, query] : all_queries()) {
    recording_sink sink;
    out = {{"old", "content"}};
    query(folder.path("missing"));
    EXPECT_EQ(index_traces(sink), (Texts{"Error: STGIndex::STGIndex() : the folder " +
                                         folder.path("missing") + " doesn't exist !!!"}))
        << name;
    if (name != "lastVersion") {
      EXPECT_TRUE(out.empty()) << name;
    }
  }
}

TEST_F(IndexQueries, RaiseWhereTheIndexCannotBeOpenedOrRead) {
  folder.set_index("a.kdb_0000000001/00000001\n");
  for (const Call call : {Call::open, Call::read}) {
    for (const auto& [name, query] : all_queries()) {
      const auto fault = os::faults::fail(call, kRefused);
      EXPECT_THROW(query(folder.path()), vu_file_except) << name;
    }
  }
  EXPECT_TRUE(index_is_free());
}

TEST_F(IndexQueries, LeaveTheTimestampWhenTheyRaise) {
  folder.set_index("a.kdb_0000000001/00000001\n");
  for (const bool on : {false, true}) {
    const synchronisation mode{on};
    const auto fault = os::faults::fail(Call::open, kRefused);
    long timestamp = 7;
    EXPECT_THROW(STGIndex::lastVersion(folder.path(), "a.kdb", timestamp), vu_file_except);
    EXPECT_EQ(timestamp, 7);
  }
}

TEST_F(IndexQueries, GiveTheFirstOfManyEntriesWithoutAPhysicalName) {
  // A line without a physical name names the folder itself.
  std::string text;
  for (char c = 'A'; c <= 'Z'; ++c) text += std::string(2, c) + "_0000000001/\n";
  for (char c = 'a'; c <= 'z'; ++c) text += std::string(2, c) + "_0000000001/\n";
  folder.set_index(text);
  STGIndex::plValues(folder.path(), out);
  EXPECT_EQ(out, (NameMap{{"", "AA"}}));
}

TEST_F(IndexQueries, ClearTheMapAlsoWhenTheyRaise) {
  folder.set_index("a.kdb_0000000001/00000001\n");
  for (const auto& [name, query] : all_queries()) {
    out = {{"old", "content"}};
    const auto fault = os::faults::fail(Call::open, kRefused);
    EXPECT_THROW(query(folder.path()), vu_file_except) << name;
    if (name != "lastVersion") {
      EXPECT_TRUE(out.empty()) << name;
    }
  }
}

TEST_F(IndexQueries, RaiseWhatTheRewriteOfAnAdoptionRaises) {
  const synchronisation on(true);
  for (const auto& [name, query] : all_queries()) {
    const index_folder fresh;
    fresh.set_index(" ");
    fresh.write("stray.txt");
    // The first read is that of the load.
    const auto fault = os::faults::fail(Call::read, kRefused, 2);
    EXPECT_THROW(query(fresh.path()), vu_file_except) << name;
    EXPECT_EQ(fault.hits(), 1U) << name;
    EXPECT_EQ(fresh.index(), " ") << name;
  }
}

TEST_F(IndexQueries, OpenScopesOfTheirOwnLikeEveryOtherMember) {
  const synchronisation on(true);
  folder.write("stray.txt");
  recording_sink sink;
  {
    std::string name;
    long ts = 0;
    STGIndex::AgeMap kept;
    STGIndex::exists(folder.path(), "a", 1, name);
    STGIndex::getPhysicalPath(folder.path(), "a");
    STGIndex::create(folder.path(), "b", 1);
    STGIndex::rename(folder.path(), "b", 1, "c", 1);
    STGIndex::remove(folder.path(), "c", 1);
    STGIndex::lastVersion(folder.path(), "a", ts);
    STGIndex::plValues(folder.path(), out);
    STGIndex::lpValues(folder.path(), out);
    STGIndex::getCategories(folder.path(), out);
    STGIndex::getVUDocs(folder.path(), out);
    STGIndex::updateIndexFile(folder.path());
    STGIndex::cleanOutOfDateOutput(folder.path(), 4000000000U, kept, false);
    STGIndex::cleanAllOutput(folder.path());
    STGIndex::cleanOutputDirectories(folder.path(), "a", nullptr);
    STGIndex::migrateInboxRead("");
  }
  std::string seen;
  for (const traced& each : sink.all()) {
    if (each.kind == traced::kind_t::scope && each.source == "stg_index")
      seen += each.signature + "\n";
  }
  for (const char* const member : {"STGIndex",
                                   "~STGIndex",
                                   "_contains",
                                   "_create",
                                   "_remove",
                                   "_rename",
                                   "newIndex",
                                   "alreadyInMaps",
                                   "add_not_referenced_entry",
                                   "synchronizeToFolder",
                                   "saveIndexFile",
                                   "exists",
                                   "create",
                                   "remove",
                                   "rename",
                                   "lastVersion",
                                   "plValues",
                                   "lpValues",
                                   "getCategories",
                                   "getVUDocs",
                                   "getPhysicalName",
                                   "getPhysicalPath",
                                   "updateIndexFile",
                                   "checkIndexFile",
                                   "cleanOutOfDateOutput",
                                   "cleanAllOutput",
                                   "cleanOutputDirectories",
                                   "migrateInboxRead"}) {
    EXPECT_NE(seen.find("STGIndex::" + std::string(member) + "("), std::string::npos) << member;
  }
  // The functions on names trace nothing.
  sink.clear();
  std::string name = "a%20b";
  STGIndex::UnescapeVU(name);
  STGIndex::iSsambaOrT101(name);
  Peer::entryOnly(Peer::entryAndTS(name, Peer::tsOnly("0000000001")));
  Peer::extension(name);
  EXPECT_EQ(sink.count(), 0U);
}

class IndexUpdating : public IndexOperations {};

TEST_F(IndexUpdating, ForcesTheRewrite) {
  folder.write("00000001.kdb");
  folder.set_index("gone_0000000001/00000002\na.kdb_0000000001/00000001");
  recording_sink sink;
  STGIndex::updateIndexFile(folder.path());
  EXPECT_EQ(folder.index(), "a.kdb_0000000001/00000001\n");
  EXPECT_EQ(index_traces(sink),
            (Texts{"M:  STGIndex: (begin) updating index.dat ...", "M:   folder : " + folder.path(),
                   "M:  STGIndex: (end) index.dat is uptodate", "M:   folder : " + folder.path()}));
}

TEST_F(IndexUpdating, MakesAMissingIndexOfOneBlank) {
  folder.write("stray.txt");
  STGIndex::updateIndexFile(folder.path());
  EXPECT_EQ(folder.index(), " ");
}

TEST_F(IndexUpdating, MakesAMissingIndexOfTheFilesThereAreWithTheSwitchOn) {
  const synchronisation on(true);
  folder.write("stray.txt");
  folder.write("00000001.kdb");
  STGIndex::updateIndexFile(folder.path());
  EXPECT_EQ(folder.index(),
            "00000001.kdb_0000000000/00000001.kdb\nstray.txt_0000000000/stray.txt\n");
}

TEST_F(IndexUpdating, ChecksOnlyWhetherTheIndexIsThere) {
  const synchronisation on(true);
  folder.write("stray.txt");
  folder.set_index("torn");
  os::faults::reset();
  Peer::checkIndexFile(folder.path());
  EXPECT_EQ(os::faults::calls(Call::any), 1U);
  EXPECT_EQ(folder.index(), "torn");
  folder.erase("index.dat");
  Peer::checkIndexFile(folder.path());
  EXPECT_EQ(folder.index(), "stray.txt_0000000000/stray.txt\n");
}

TEST_F(IndexUpdating, WarnsOnlyInAFolderThatIsMissing) {
  recording_sink sink;
  EXPECT_NO_THROW(STGIndex::updateIndexFile(folder.path("missing")));
  EXPECT_EQ(sink.count(trace_event::warning,
                       "STGIndex::~STGIndex(): Unable to create/update index.dat - please verify "
                       "that you have write access and disk is not full.\n Reason: throw exception "
                       "on open"),
            1U);
}

}  // namespace
