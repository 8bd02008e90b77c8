#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "platform/os/os.h"
#include "tests/support/recording_sink.h"
#include "tests/unit/index_fixture.h"

// The physical names of new files, from the counter.

namespace {

using os::faults::Call;
using os::faults::Times;
using Peer = stg_index_test_peer;
using NameMap = STGIndex::NameMap;
using vu_host::trace_event;

constexpr const char* kTrouble = "STGIndex::newIndex : return 99999999";

class IndexCounter : public IndexTest {
 protected:
  /// Draws one name. @param counter the content of the counter; nullptr: no counter.
  std::string draw(const char* counter, const Texts& taken = {}) {
    if (counter == nullptr) {
      if (folder.has("index")) folder.erase("index");
    } else {
      folder.write("index", counter);
    }
    STGIndex index = Peer::load(folder.path());
    for (const std::string& name : taken) Peer::insert(index, name + "_0000000001", name);
    return Peer::newIndex(index);
  }
  std::string counter() const { return folder.read("index"); }
  bool counter_is_free() const { return is_free("index"); }
};

TEST_F(IndexCounter, GivesTheNextNumberInEightDigitsAndKeepsIt) {
  struct {
    const char* before;
    const char* name;
  } const table[] = {{nullptr, "00000001"},
                     {"", "00000001"},
                     {"00000000", "00000001"},
                     {"00000041", "00000042"},
                     {"41", "00000042"},
                     {"  41\n", "00000042"},
                     {"+41", "00000042"},
                     {"00000041 and more", "00000042"},
                     {"garbage", "00000001"},
                     {" ", "00000001"},
                     {"99999998", "99999999"},
                     {"99999999", "100000000"},
                     {"0000000000000000000000000000000007", "00000008"},
                     {"2147483646", "2147483647"}};
  for (const auto& [before, name] : table) {
    EXPECT_EQ(draw(before), name) << (before == nullptr ? "no counter" : before);
    EXPECT_EQ(counter(), name) << (before == nullptr ? "no counter" : before);
  }
}

TEST_F(IndexCounter, RestartsAfterANegativeNumber) {
  for (const char* const before : {"-1", "-00000005", "-2147483648", "-99999999999"}) {
    EXPECT_EQ(draw(before), "00000000") << before;
    EXPECT_EQ(counter(), "00000000") << before;
  }
}

TEST_F(IndexCounter, RestartsAfterTheLargestNumber) {
  for (const char* const before :
       {"2147483647", "2147483648", "4294967295", "99999999999999999999"}) {
    EXPECT_EQ(draw(before), "00000000") << before;
    EXPECT_EQ(counter(), "00000000") << before;
  }
  EXPECT_EQ(draw("2147483646", {"2147483647"}), "00000000");
  EXPECT_EQ(draw("2147483645", {"2147483646", "2147483647"}), "00000000");
}

TEST_F(IndexCounter, GivesTheFirstNameOfAllAlsoWhenItIsTaken) {
  EXPECT_EQ(draw("-1", {"00000000"}), "00000000");
  EXPECT_EQ(draw("2147483647", {"00000000", "00000001"}), "00000000");
}

TEST_F(IndexCounter, PassesOverNamesThatTheIndexHolds) {
  EXPECT_EQ(draw("00000041", {"00000042"}), "00000043");
  EXPECT_EQ(counter(), "00000043");
  EXPECT_EQ(draw("", {"00000001", "00000002", "00000004"}), "00000003");
  EXPECT_EQ(draw("99999998", {"99999999", "100000000"}), "100000001");
}

TEST_F(IndexCounter, DoesNotLookAtTheFilesInTheFolder) {
  folder.write("00000001");
  folder.write("00000001.kdb", "old bytes");
  EXPECT_EQ(draw(nullptr), "00000001");
}

TEST_F(IndexCounter, OnlyGrowsWhileEntriesGo) {
  {
    STGIndex index = Peer::load(folder.path());
    EXPECT_EQ(Peer::_create(index, "a.kdb", 1), "00000001.kdb");
    EXPECT_EQ(Peer::_create(index, "b.kdb", 1), "00000002.kdb");
    Peer::_remove(index, "b.kdb", 1);
    Peer::_remove(index, "a.kdb", 1);
    EXPECT_EQ(Peer::_create(index, "b.kdb", 1), "00000003.kdb");
  }
  EXPECT_EQ(counter(), "00000003");
  STGIndex index = Peer::load(folder.path());
  EXPECT_EQ(Peer::_create(index, "c.kdb", 1), "00000004.kdb");
}

TEST_F(IndexCounter, IsNeverEmptyOnTheWay) {
  for (const char* const before : {"00000041", "garbage that is longer than a number", "-1"}) {
    folder.write("index", before);
    int checks = 0;
    int empty = 0;
    const std::function<void()> check = [&] {
      ++checks;
      if (std::filesystem::file_size(native(folder.path("index"))) == 0) ++empty;
    };
    {
      STGIndex index = Peer::load(folder.path());
      const auto hook = os::faults::before(Call::any, check, 1, Times::kLasting);
      const auto other_hook = os::faults::after(Call::any, check, 1, Times::kLasting);
      Peer::newIndex(index);
    }
    EXPECT_GT(checks, 10) << before;
    EXPECT_EQ(empty, 0) << before;
    EXPECT_EQ(counter().size(), 8U) << before;
  }
}

TEST_F(IndexCounter, IsLockedWhileANameIsDrawn) {
  folder.write("index", "00000041");
  bool was_locked = false;
  {
    const auto hook = os::faults::before(Call::write, [&] {
      vu_file reader(folder.path(), "index");
      EXPECT_TRUE(reader.try_open(vu_file::o_read, was_locked, true));
    });
    STGIndex index = Peer::load(folder.path());
    os::faults::reset();
    EXPECT_EQ(Peer::newIndex(index), "00000042");
    EXPECT_EQ(os::faults::calls(Call::write), 1U);
    EXPECT_EQ(os::faults::calls(Call::flush), 1U);
  }
  EXPECT_TRUE(was_locked);
  EXPECT_TRUE(counter_is_free());
}

TEST_F(IndexCounter, ChangesNothingInTheIndex) {
  {
    STGIndex index = Peer::load(folder.path());
    Peer::newIndex(index);
    EXPECT_TRUE(Peer::lp(index).empty());
    EXPECT_FALSE(Peer::need_update(index));
  }
  EXPECT_EQ(folder.names(), (Texts{"index"}));
}

TEST_F(IndexCounter, GivesTheTroubleNameWhenItCannotBeMade) {
  const std::string missing = folder.path("missing");
  STGIndex index = Peer::load(missing);
  recording_sink sink;
  EXPECT_EQ(Peer::newIndex(index), "99999999");
  EXPECT_EQ(index_traces(sink), (Texts{std::string("Error: ") + kTrouble}));
}

TEST_F(IndexCounter, GivesTheTroubleNameWhenAFolderTakesItsName) {
  make_folder(folder.path("index"));
  recording_sink sink;
  STGIndex index = Peer::load(folder.path());
  EXPECT_EQ(Peer::newIndex(index), "99999999");
  EXPECT_EQ(sink.count(trace_event::error, kTrouble), 1U);
  EXPECT_TRUE(folder_exists(folder.path("index")));
}

TEST_F(IndexCounter, LeavesTheCounterAloneWhenItCannotBeOpened) {
  recording_sink sink;
  const auto fault = os::faults::fail(Call::open, kRefused);
  EXPECT_EQ(draw("00000041"), "99999999");
  EXPECT_EQ(sink.count(trace_event::error, kTrouble), 1U);
  EXPECT_EQ(counter(), "00000041");
}

TEST_F(IndexCounter, KeepsNothingAfterTheTroubleName) {
  const auto fault = os::faults::fail(Call::read, kRefused);
  EXPECT_EQ(draw("1234567890"), "99999999");
  EXPECT_EQ(counter(), "99999999");
}

TEST_F(IndexCounter, KeepsTheTroubleNameWhenItCannotBeRead) {
  recording_sink sink;
  {
    const auto fault = os::faults::fail(Call::read, kRefused);
    EXPECT_EQ(draw("00000041"), "99999999");
  }
  EXPECT_EQ(sink.count(trace_event::error, kTrouble), 1U);
  EXPECT_EQ(counter(), "99999999");
  EXPECT_TRUE(counter_is_free());
  STGIndex index = Peer::load(folder.path());
  EXPECT_EQ(Peer::newIndex(index), "100000000");
}

TEST_F(IndexCounter, GivesTheTroubleNameForAnyException) {
  const std::exception_ptr exceptions[] = {
      std::make_exception_ptr(std::runtime_error("x")), std::make_exception_ptr(std::bad_alloc()),
      std::make_exception_ptr(vu_file_except("x")), std::make_exception_ptr(1)};
  for (const Call call : {Call::open, Call::lock, Call::read, Call::write}) {
    for (const std::exception_ptr& exception : exceptions) {
      recording_sink sink;
      folder.write("index", "00000041");
      STGIndex index = Peer::load(folder.path());
      {
        const auto fault = os::faults::fail_with(call, exception);
        EXPECT_EQ(Peer::newIndex(index), "99999999") << os::faults::name(call);
        EXPECT_EQ(fault.hits(), 1U) << os::faults::name(call);
      }
      EXPECT_EQ(sink.count(trace_event::error, kTrouble), 1U) << os::faults::name(call);
      EXPECT_TRUE(counter_is_free()) << os::faults::name(call);
      EXPECT_EQ(counter(), call == Call::open ? "00000041" : "99999999") << os::faults::name(call);
    }
  }
}

TEST_F(IndexCounter, GivesTheTroubleNameEvenWhenItCannotBeKept) {
  recording_sink sink;
  const auto fault =
      os::faults::throw_from(Call::write, std::runtime_error("x"), 1, Times::kLasting);
  EXPECT_EQ(draw("00000041"), "99999999");
  EXPECT_EQ(fault.hits(), 2U);
  EXPECT_EQ(counter(), "00000041");
  EXPECT_TRUE(counter_is_free());
}

TEST_F(IndexCounter, GivesTheTroubleNameOncePerTrouble) {
  // Two entries then share one physical name, and also one file if their extensions are equal.
  recording_sink sink;
  {
    // The order of opens: the counter, the new file, the counter.
    const auto first = os::faults::fail(Call::open, kRefused, 1);
    const auto second = os::faults::fail(Call::open, kRefused, 3);
    STGIndex index = Peer::load(folder.path());
    EXPECT_EQ(Peer::_create(index, "a.kdb", 1), "99999999.kdb");
    EXPECT_EQ(Peer::_create(index, "b.kdb", 1), "99999999.kdb");
    EXPECT_EQ(first.hits() + second.hits(), 2U);
    EXPECT_EQ(Peer::lp(index),
              (NameMap{{"a.kdb_0000000001", "99999999"}, {"b.kdb_0000000001", "99999999"}}));
    EXPECT_EQ(Peer::pl(index), (NameMap{{"99999999", "a.kdb_0000000001"}}));
  }
  EXPECT_EQ(sink.count(trace_event::error, kTrouble), 2U);
  EXPECT_EQ(folder.index(), "a.kdb_0000000001/99999999\nb.kdb_0000000001/99999999\n");
  EXPECT_EQ(folder.names(), (Texts{"99999999.kdb", "index.dat"}));
}

TEST_F(IndexCounter, KeepsItsOldNumberWhenTheDiskIsFull) {
  // A failed write throws no exception: the name is returned all the same.
  recording_sink sink;
  const auto fault = os::faults::fail(Call::write, {28, os::Failure::kOther});
  EXPECT_EQ(draw("00000041"), "00000042");
  EXPECT_EQ(counter(), "00000041");
  EXPECT_EQ(sink.count(trace_event::error, kTrouble), 0U);
  EXPECT_EQ(sink.count(trace_event::error, "write file : " + folder.path("index")), 1U);
}

// Renames while the counter cannot be used.

class IndexCounterInTrouble : public IndexTest {
 protected:
  /// Renames a.kdb, whose file is 00000001.kdb, beside another line. @return the new index.
  std::string renamed(const std::string& to, const std::string& other_line) const {
    folder.write("00000001.kdb", "bytes of a");
    folder.set_index("a.kdb_0000000001/00000001\n" + other_line);
    // The counter is a folder.
    make_folder(folder.path("index"));
    STGIndex::rename(folder.path(), "a.kdb", 1, to, 1);
    return folder.index();
  }
};

TEST_F(IndexCounterInTrouble, LetsARenameUseANumberWithAnotherExtension) {
  const std::string line = "x.txt_0000000001/99999999\n";
  folder.write("99999999.txt", "bytes of x");
  EXPECT_EQ(renamed("b.kdb", line), "b.kdb_0000000001/99999999\n" + line);
  EXPECT_EQ(folder.read("99999999.kdb"), "bytes of a");
  EXPECT_EQ(folder.read("99999999.txt"), "bytes of x");
  EXPECT_EQ(folder.names(), (Texts{"99999999.kdb", "99999999.txt", "index", "index.dat"}));
}

TEST_F(IndexCounterInTrouble, KeepsTheFilesOfAllEntriesWithItsNumber) {
  const std::string lines = "x.txt_0000000001/99999999\ny.kdb_0000000001/99999999\n";
  folder.write("99999999.txt", "bytes of x");
  folder.write("99999999.kdb", "bytes of y");
  EXPECT_EQ(renamed("b.kdb", lines), "a.kdb_0000000001/00000001\n" + lines);
  EXPECT_EQ(folder.read("99999999.kdb"), "bytes of y");
  EXPECT_EQ(folder.read("99999999.txt"), "bytes of x");
}

TEST_F(IndexCounterInTrouble, KeepsAFileThatMakesALineValidByItsPhysicalNameAlone) {
  const std::string line = "x.txt_0000000001/99999999\n";
  folder.write("99999999", "bytes of x");
  EXPECT_EQ(renamed("b", line), "a.kdb_0000000001/00000001\n" + line);
  EXPECT_EQ(folder.read("99999999"), "bytes of x");
}

TEST_F(IndexCounterInTrouble, LeavesNoFileOfARenameThatFails) {
  // The system cannot check the file of x, so it may be the one that the rename creates.
  folder.write("00000001.kdb", "bytes of a");
  folder.set_index("a.kdb_0000000001/00000001\nx.kdb_0000000001/99999999\n");
  make_folder(folder.path("index"));
  {
    std::unique_ptr<os::faults::Fault> silence(
        new os::faults::Fault(os::faults::fail(Call::probe_search, kRefused, 1, Times::kLasting)));
    STGIndex index = Peer::load(folder.path());
    silence.reset();
    EXPECT_FALSE(Peer::_rename(index, "a.kdb", 1, "b.kdb", 1));
  }
  EXPECT_EQ(folder.names(), (Texts{"00000001.kdb", "index", "index.dat"}));
}

TEST_F(IndexCounterInTrouble, CopiesOverNoFileWhoseFullNameAnUnknownLineHas) {
  folder.write("00000001.kdb", "bytes of a");
  folder.write("index", "00000001");
  const std::string text = "a.kdb_0000000001/00000001\nx.txt_0000000001/00000002.kdb\n";
  folder.set_index(text);
  {
    std::unique_ptr<os::faults::Fault> silence(
        new os::faults::Fault(os::faults::fail(Call::probe_search, kRefused, 1, Times::kLasting)));
    STGIndex index = Peer::load(folder.path());
    silence.reset();
    folder.write("00000002.kdb", "bytes of x");
    EXPECT_FALSE(Peer::_rename(index, "a.kdb", 1, "b.kdb", 1));
  }
  EXPECT_EQ(folder.index(), text);
  EXPECT_EQ(folder.read("00000001.kdb"), "bytes of a");
  EXPECT_EQ(folder.read("00000002.kdb"), "bytes of x");
}

}  // namespace
