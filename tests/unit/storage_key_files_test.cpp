#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <future>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/host_services.h"
#include "tests/unit/storage_fixture.h"

// Key files by path. Key files of an owner: storage_profiles_test.cpp.

namespace {

using os::faults::Call;
using os::faults::Times;
using vu_host::trace_event;
using vu_host::trace_level;
using Peer = vu_storage_test_peer;

class KeyFiles : public StorageTest {
 protected:
  std::string file(const std::string& name) const { return scratch.path(name); }
  long read(const std::string& name, STG::NameValueSeq& seq, bool last_separator = false) {
    return vu_storage::readKeysFile(scratch.path(), name, seq, last_separator);
  }
  bool write(const std::string& name, const std::string& text, bool replace) {
    return vu_storage::writeKeysFile(scratch.path(), name, text, replace);
  }
};

TEST_F(KeyFiles, ALineFillsThePairOnlyWhenItHasASeparator) {
  STG::NameValue pair{"old name", "old value"};
  EXPECT_FALSE(Peer::LoadKeyLine("abc", pair, false));
  EXPECT_EQ(pair.name, "old name");
  EXPECT_EQ(pair.value, "old value");
  EXPECT_TRUE(Peer::LoadKeyLine("a=b=c", pair, false));
  EXPECT_EQ(pair.name, "a");
  EXPECT_EQ(pair.value, "b=c");
  EXPECT_TRUE(Peer::LoadKeyLine("a=b=c", pair, true));
  EXPECT_EQ(pair.name, "a=b");
  EXPECT_EQ(pair.value, "c");
  EXPECT_TRUE(Peer::LoadKeyLine("x=", pair, true));
  EXPECT_EQ(pair.name, "x");
  EXPECT_EQ(pair.value, "");
}

TEST_F(KeyFiles, ASequenceIsSerialisedInItsOrder) {
  EXPECT_EQ(vu_storage::getStringFromNameValueSeq({}), "");
  EXPECT_EQ(vu_storage::getStringFromNameValueSeq(sequence_of({{"b", "2"}, {"a", "1"}})),
            "b=2\na=1\n");
}

TEST_F(KeyFiles, ReadingAppendsToWhatTheSequenceHolds) {
  write_file(file("k.txt"), "a=1\nno separator\nb=x=y\n");
  STG::NameValueSeq seq = sequence_of({{"first", "0"}});
  EXPECT_EQ(read("k.txt", seq), 0L);
  EXPECT_EQ(pairs_of(seq), (Pairs{{"first", "0"}, {"a", "1"}, {"b", "x=y"}}));
  EXPECT_EQ(read("k.txt", seq, true), 0L);
  EXPECT_EQ(pairs_of(seq),
            (Pairs{{"first", "0"}, {"a", "1"}, {"b", "x=y"}, {"a", "1"}, {"b=x", "y"}}));
}

TEST_F(KeyFiles, AnEmptyFileIsReadWithSuccess) {
  write_file(file("k.txt"), "");
  STG::NameValueSeq seq;
  EXPECT_EQ(read("k.txt", seq), 0L);
  EXPECT_TRUE(seq.empty());
}

TEST_F(KeyFiles, AnOpenFileIsReadWholeAndStaysOpen) {
  write_file(file("k.txt"), "a=b=c\td=e");
  vu_file handle(scratch.path(), "k.txt");
  handle.open(vu_file_base::o_read);
  STG::NameValueSeq seq;
  EXPECT_TRUE(vu_storage::Read(handle, seq, true));
  EXPECT_EQ(pairs_of(seq), (Pairs{{"a=b", "c"}, {"d", "e"}}));
  EXPECT_TRUE(handle.is_open());
}

TEST_F(KeyFiles, ReadingAFileThatWasNeverOpenedFailsWithoutATrace) {
  vu_file handle;
  STG::NameValueSeq seq = sequence_of({{"kept", "1"}});
  EXPECT_FALSE(vu_storage::Read(handle, seq, false));
  EXPECT_EQ(pairs_of(seq), (Pairs{{"kept", "1"}}));
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
}

TEST_F(KeyFiles, EveryExceptionWhileReadingAnOpenFileBecomesFalseWithoutATrace) {
  write_file(file("k.txt"), "a=1\n");
  vu_file handle(scratch.path(), "k.txt");
  handle.open(vu_file_base::o_read);
  STG::NameValueSeq seq;
  {
    const auto fault = os::faults::fail(Call::read, kRefused);
    EXPECT_FALSE(vu_storage::Read(handle, seq, false));
    EXPECT_EQ(fault.hits(), 1U);
  }
  {
    const auto fault = os::faults::throw_from(Call::read, std::runtime_error("planned"));
    EXPECT_FALSE(vu_storage::Read(handle, seq, false));
    EXPECT_EQ(fault.hits(), 1U);
  }
  EXPECT_TRUE(seq.empty());
  EXPECT_EQ(facade(trace_event::error), Texts{});
  EXPECT_EQ(facade(trace_event::warning), Texts{});
}

TEST_F(KeyFiles, AMissingFileIsAWarningAndAFailure) {
  STG::NameValueSeq seq = sequence_of({{"kept", "1"}});
  EXPECT_EQ(read("gone.txt", seq), 1L);
  EXPECT_EQ(facade(trace_event::warning),
            Texts{"vu_storage::readKeysFile : " + file("gone.txt") + " not found"});
  EXPECT_EQ(facade(trace_event::error), Texts{});
  EXPECT_EQ(pairs_of(seq), (Pairs{{"kept", "1"}}));
}

TEST_F(KeyFiles, AKeyFileThatCannotBeOpenedIsAnErrorWithTheExceptionsText) {
  write_file(file("k.txt"), "a=1\n");
  STG::NameValueSeq seq;
  const auto fault = os::faults::fail(Call::open, kRefused);
  EXPECT_EQ(read("k.txt", seq), 1L);
  EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::readKeysFile throw exception on open"});
}

TEST_F(KeyFiles, AFolderCannotBeReadAsAKeyFile) {
  make_folder(file("folder"));
  STG::NameValueSeq seq;
  EXPECT_EQ(read("folder", seq), 1L);
  EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::readKeysFile throw exception on open"});
}

TEST_F(KeyFiles, AnyOtherExceptionWhileReadingIsAnErrorThatNamesTheFile) {
  write_file(file("k.txt"), "a=1\n");
  STG::NameValueSeq seq;
  const auto fault = os::faults::throw_from(Call::open, std::runtime_error("planned"));
  EXPECT_EQ(read("k.txt", seq), 1L);
  EXPECT_EQ(facade(trace_event::error),
            Texts{"vu_storage::readKeysFile failed file" + file("k.txt")});
}

TEST_F(KeyFiles, AKeyFileThatCannotBeReadFailsWithoutATraceOfTheFacade) {
  write_file(file("k.txt"), "a=1\n");
  STG::NameValueSeq seq;
  const auto fault = os::faults::fail(Call::read, kRefused);
  EXPECT_EQ(read("k.txt", seq), 1L);
  EXPECT_EQ(facade(trace_event::error), Texts{});
  EXPECT_EQ(facade(trace_event::warning), Texts{});
}

TEST_F(KeyFiles, AReaderWaitsForAWriterAndReadsWhatItWrote) {
  write_file(file("k.txt"), "a=1\n");
  vu_file writer(scratch.path(), "k.txt");
  writer.open(vu_file_base::o_write);
  STG::NameValueSeq seq;
  std::future<long> result = std::async(std::launch::async, [&] { return read("k.txt", seq); });
  EXPECT_EQ(result.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
  writer.write("a=2\n");
  writer.close();
  EXPECT_EQ(result.get(), 0L);
  EXPECT_EQ(pairs_of(seq), (Pairs{{"a", "2"}}));
}

TEST_F(KeyFiles, AnEmptyTextIsASuccessThatTouchesNothing) {
  write_file(file("k.txt"), "a=1\n");
  set_modify_time(file("k.txt"), 1000);
  EXPECT_TRUE(write("k.txt", "", true));
  EXPECT_TRUE(write("k.txt", "", false));
  EXPECT_EQ(read_file(file("k.txt")), "a=1\n");
  EXPECT_EQ(get_modify_time(file("k.txt")), 1000);
  EXPECT_TRUE(write("new.txt", "", true));
  EXPECT_TRUE(write("new.txt", "", false));
  EXPECT_FALSE(file_exists(file("new.txt")));
}

TEST_F(KeyFiles, WritingReplacesOrAppendsAndMakesAMissingFile) {
  EXPECT_TRUE(write("k.txt", "a=1\nb=2\n", true));
  EXPECT_EQ(read_file(file("k.txt")), "a=1\nb=2\n");
  EXPECT_TRUE(write("k.txt", "c=3", true));
  EXPECT_EQ(read_file(file("k.txt")), "c=3");
  EXPECT_TRUE(write("k.txt", "d=4\n", false));
  EXPECT_EQ(read_file(file("k.txt")), "c=3d=4\n");
  EXPECT_TRUE(write("new.txt", "e=5\n", false));
  EXPECT_EQ(read_file(file("new.txt")), "e=5\n");
}

TEST_F(KeyFiles, AKeyFileThatCannotBeOpenedForWritingIsAnErrorWithTheExceptionsText) {
  EXPECT_FALSE(vu_storage::writeKeysFile(file("no folder"), "k.txt", "a=1\n", true));
  EXPECT_EQ(facade(trace_event::error),
            Texts{"vu_storage::writeKeysFile : throw exception on open"});
  sink.clear();
  EXPECT_FALSE(vu_storage::writeKeysFile(scratch.path(), "", "a=1\n", false));
  EXPECT_EQ(facade(trace_event::error),
            Texts{"vu_storage::writeKeysFile : "
                  "vu_file::write : write operation in read access file"});
}

TEST_F(KeyFiles, AnyOtherExceptionWhileWritingIsAnErrorThatNamesTheFileAndLeavesItCut) {
  write_file(file("k.txt"), "a=1\n");
  const auto fault = os::faults::throw_from(Call::write, std::runtime_error("planned"));
  EXPECT_FALSE(write("k.txt", "b=2\n", true));
  EXPECT_EQ(facade(trace_event::error),
            Texts{"vu_storage::writeKeysFile failed file" + file("k.txt")});
  EXPECT_EQ(read_file(file("k.txt")), "");
}

TEST_F(KeyFiles, AWriteThatTheSystemRefusesIsTracedBelowAndStaysASuccess) {
  const auto fault = os::faults::fail(Call::write, kRefused);
  EXPECT_TRUE(write("k.txt", "b=2\n", true));
  EXPECT_EQ(sink.count(trace_event::error, "write file : " + file("k.txt")), 1U);
  EXPECT_EQ(facade(trace_event::error), Texts{});
  EXPECT_EQ(read_file(file("k.txt")), "");
}

TEST_F(KeyFiles, ALineIsRemovedFromAFileThatBearsTheLogicalName) {
  write_file(file("attribut.txt"), "ab=1\nb=2\n");
  Peer::DeleteKeyLineFromFile(scratch.path(), "attribut.txt", "b");
  EXPECT_EQ(read_file(file("attribut.txt")), "ab=2\n");
  EXPECT_EQ(facade(trace_level::xs), Texts{});
  EXPECT_EQ(sink.events(trace_event::error), Texts{}) << "of the file neither";
}

TEST_F(KeyFiles, ALineIsRemovedFromTheFileThatTheIndexNamesAtTimestampZero) {
  const std::string old = make_entry(scratch.path(), "c.ctg", 0, "x=1\ny=2\nx=3\n");
  const std::string newer = make_entry(scratch.path(), "c.ctg", 7, "x=1\n");
  Peer::DeleteKeyLineFromFile(scratch.path(), "c.ctg", "x");
  EXPECT_EQ(read_file(old), "y=2\nx=3\n");
  EXPECT_EQ(read_file(newer), "x=1\n");
}

TEST_F(KeyFiles, RemovingTheOnlyLineLeavesAnEmptyFile) {
  write_file(file("k.txt"), "a=1\n");
  Peer::DeleteKeyLineFromFile(scratch.path(), "k.txt", "a=");
  EXPECT_TRUE(file_exists(file("k.txt")));
  EXPECT_EQ(read_file(file("k.txt")), "");
}

TEST_F(KeyFiles, AFileWithoutTheEntryIsNotWrittenAgain) {
  write_file(file("k.txt"), "a=1\n");
  set_modify_time(file("k.txt"), 1000);
  Peer::DeleteKeyLineFromFile(scratch.path(), "k.txt", "b");
  EXPECT_EQ(read_file(file("k.txt")), "a=1\n");
  EXPECT_EQ(get_modify_time(file("k.txt")), 1000);
}

TEST_F(KeyFiles, AnEmptyEntryTakesTheFirstLine) {
  write_file(file("k.txt"), "a=1\nb=2\n");
  Peer::DeleteKeyLineFromFile(scratch.path(), "k.txt", "");
  EXPECT_EQ(read_file(file("k.txt")), "b=2\n");
}

TEST_F(KeyFiles, AFileThatTheIndexDoesNotNameIsOneRecordAtXS) {
  Peer::DeleteKeyLineFromFile(scratch.path(), "gone.ctg", "sales.kdc");
  EXPECT_EQ(facade(trace_level::xs), Texts{"DeleteKeyLineFromFile : entry=sales.kdc"});
  EXPECT_EQ(facade(trace_event::error), Texts{});
}

TEST_F(KeyFiles, ALineOfAFileThatCannotBeOpenedStaysAndIsAnError) {
  write_file(file("k.txt"), "a=1\n");
  for (const std::uint64_t nth : {1U, 2U}) {
    SCOPED_TRACE(nth == 1 ? "for reading" : "for writing");
    sink.clear();
    const auto fault = os::faults::fail(Call::open, kRefused, nth);
    Peer::DeleteKeyLineFromFile(scratch.path(), "k.txt", "a");
    EXPECT_EQ(facade(trace_event::error),
              Texts{"vu_storage::DeleteKeyLineFromFile throw exception on open"});
    EXPECT_EQ(read_file(file("k.txt")), "a=1\n");
  }
}

TEST_F(KeyFiles, AnyOtherExceptionWhileALineIsRemovedIsAnErrorWithoutAText) {
  write_file(file("k.txt"), "a=1\n");
  const auto fault = os::faults::throw_from(Call::read, std::runtime_error("planned"));
  Peer::DeleteKeyLineFromFile(scratch.path(), "k.txt", "a");
  EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::DeleteKeyLineFromFile "});
  EXPECT_EQ(read_file(file("k.txt")), "a=1\n");
}

TEST_F(KeyFiles, ALineIsRemovedFromEveryCategoryFileInTheOrderOfTheirNames) {
  const std::string last = make_entry(scratch.path(), "z.ctg", 0, "s=1\nt=2\n");
  const std::string first = make_entry(scratch.path(), "a.ctg", 0, "t=3\ns=4\n");
  const std::string without = make_entry(scratch.path(), "m.ctg", 0, "t=5\n");
  const std::string other = make_entry(scratch.path(), "other.txt", 0, "s=6\n");
  Peer::RemoveFromCategFiles(scratch.path(), "s=");
  EXPECT_EQ(read_file(last), "t=2\n");
  EXPECT_EQ(read_file(first), "t=3\n");
  EXPECT_EQ(read_file(without), "t=5\n");
  EXPECT_EQ(read_file(other), "s=6\n");

  // Each file that cannot be truncated is traced, which shows the order.
  sink.clear();
  const auto fault = os::faults::fail(Call::set_end, kRefused, 1, Times::kLasting);
  Peer::RemoveFromCategFiles(scratch.path(), "t=");
  Texts refused;
  for (const std::string& text : sink.events(trace_event::error)) {
    if (text.starts_with("Can't truncate file ")) refused.push_back(text);
  }
  EXPECT_EQ(refused, (Texts{"Can't truncate file  : " + first, "Can't truncate file  : " + without,
                            "Can't truncate file  : " + last}));
}

TEST_F(KeyFiles, ACategoryThatIsIndexedUnderAnotherTimestampOnlyKeepsItsLines) {
  const std::string path = make_entry(scratch.path(), "a.ctg", 7, "s=1\n");
  Peer::RemoveFromCategFiles(scratch.path(), "s");
  EXPECT_EQ(read_file(path), "s=1\n");
  EXPECT_EQ(facade(trace_level::xs), Texts{"DeleteKeyLineFromFile : entry=s"});
}

TEST_F(KeyFiles, WhatTheListOfCategoriesRaisesPasses) {
  make_entry(scratch.path(), "a.ctg", 0, "s=1\n");
  {
    const auto fault = os::faults::fail(Call::read, kRefused);
    EXPECT_THROW(Peer::RemoveFromCategFiles(scratch.path(), "s"), vu_file_except);
  }
  const auto fault = os::faults::throw_from(Call::open, std::runtime_error("planned"));
  EXPECT_THROW(Peer::RemoveFromCategFiles(scratch.path(), "s"), std::runtime_error);
}

TEST_F(KeyFiles, BytesAreCopiedUpToTheFirstNul) {
  EXPECT_EQ(Peer::getBuffer(vu_utf8string()), "");
  EXPECT_EQ(Peer::getBuffer(vu_utf8string("J\xC3\xB6rg")), "J\xC3\xB6rg");
  EXPECT_EQ(Peer::getBuffer(vu_utf8string(std::string("\xFF\x80 is no UTF-8"))),
            "\xFF\x80 is no UTF-8");
  EXPECT_EQ(Peer::getBuffer(vu_utf8string(std::string("ab\0cd", 5))), "ab");
}

TEST_F(KeyFiles, EveryOperationOpensAScopeOfItsOwnFirst) {
  write_file(file("k.txt"), "a=1\n");
  vu_file handle(scratch.path(), "k.txt");
  STG::NameValueSeq seq;
  STG::NameValue pair;
  const std::vector<std::pair<const char*, std::function<void()>>> operations = {
      {"LoadKeyLine", [&] { Peer::LoadKeyLine("a=1", pair, false); }},
      {"getStringFromNameValueSeq", [&] { vu_storage::getStringFromNameValueSeq(seq); }},
      {"Read", [&] { vu_storage::Read(handle, seq, false); }},
      {"readKeysFile", [&] { read("k.txt", seq); }},
      {"writeKeysFile", [&] { write("k.txt", "", false); }},
      {"DeleteKeyLineFromFile",
       [&] { Peer::DeleteKeyLineFromFile(scratch.path(), "k.txt", "none"); }},
      {"saveKey", [&] { Peer::saveKey("jdoe", "k", STG::UserRepository, seq); }},
      {"loadKey", [&] { Peer::loadKey("jdoe", "k", STG::UserRepository, seq); }},
      {"RemoveFromCategFiles", [&] { Peer::RemoveFromCategFiles(scratch.path(), "none"); }},
      {"getBuffer", [&] { Peer::getBuffer(vu_utf8string("x")); }},
  };
  for (const auto& [name, operation] : operations) {
    expect_scope_first({name, trace_level::xl, "", operation});
  }
}

TEST_F(KeyFiles, EveryPublicOperationInitialisesTheStorage) {
  write_file(file("k.txt"), "a=1\n");
  fake_temporary_files temporary(scratch.path("server"));
  vu_host::install({.trace = &sink, .temp = &temporary});
  vu_file handle;
  STG::NameValueSeq seq;
  const std::vector<std::pair<std::string, std::function<void()>>> operations = {
      {"getStringFromNameValueSeq", [&] { vu_storage::getStringFromNameValueSeq(seq); }},
      {"Read", [&] { vu_storage::Read(handle, seq, false); }},
      {"readKeysFile", [&] { read("k.txt", seq); }},
      {"writeKeysFile", [&] { write("k.txt", "", false); }},
  };
  for (const auto& [name, operation] : operations) {
    SCOPED_TRACE(name);
    Peer::reset();
    operation();
    EXPECT_EQ(Peer::init_done(), 1234);
    EXPECT_EQ(Peer::storage_path(), scratch.path("server"));
  }
}

TEST_F(KeyFiles, NoExceptionOfTheHostsHelperLeavesAnOperationOnAFile) {
  write_file(file("k.txt"), "a=1\n");
  FailingTemporaryFiles temporary(std::runtime_error("planned"));
  vu_host::install({.trace = &sink, .temp = &temporary});
  Peer::reset();
  vu_file handle;
  STG::NameValueSeq seq;
  EXPECT_FALSE(vu_storage::Read(handle, seq, false));
  EXPECT_EQ(read("k.txt", seq), 1L);
  EXPECT_FALSE(write("k.txt", "b=2\n", true));
  EXPECT_EQ(facade(trace_event::error),
            (Texts{"vu_storage::readKeysFile failed file" + file("k.txt"),
                   "vu_storage::writeKeysFile failed file" + file("k.txt")}));
  EXPECT_EQ(read_file(file("k.txt")), "a=1\n");
}

TEST_F(KeyFiles, AFileOfManyLinesIsReadByOneCallAndOneThatFindsItsEnd) {
  STG::NameValueSeq written;
  for (int i = 0; i < 10000; ++i)
    written.push_back({"name " + std::to_string(i), "value " + std::to_string(i % 7)});
  EXPECT_TRUE(write("k.txt", vu_storage::getStringFromNameValueSeq(written), true));
  STG::NameValueSeq seq;
  EXPECT_EQ(calls_of(Call::read, [&] { EXPECT_EQ(read("k.txt", seq), 0L); }), 2U);
  EXPECT_EQ(pairs_of(seq), pairs_of(written));
}

TEST_F(KeyFiles, AreReadToTheirEndWhateverTheirSizeSeemsToBe) {
  const std::string more(10'000, 'x');
  write_file(file("k"), "a=" + more + "\n");
  // Bytes of another handle can be readable before the size includes them.
  const auto later = os::faults::after(Call::size, [&] {
    std::ofstream(native(file("k")), std::ios::app | std::ios::binary) << "b=" << more << "\n";
  });
  STG::NameValueSeq seq;
  EXPECT_EQ(read("k", seq), 0);
  EXPECT_EQ(later.hits(), 1U);
  EXPECT_EQ(pairs_of(seq), (Pairs{{"a", more}, {"b", more}}));
}

TEST_F(KeyFiles, LoseNothingAfterTheirSizeWhenALineIsCut) {
  const std::string folder = folder_of("jdoe", "x", STG::UserFilesRepository);
  const std::string first = "a=" + std::string(10'000, 'x') + "\n";
  const std::string path = make_entry(folder, "k.txt", 0, first + "b=2\n");
  const auto later = os::faults::after(Call::size, [&] {
    std::ofstream(native(path), std::ios::app | std::ios::binary) << "c=3\n";
  });
  Peer::DeleteKeyLineFromFile(folder, "k.txt", "b");
  EXPECT_EQ(later.hits(), 1U);
  EXPECT_EQ(read_file(path), first + "c=3\n");
}

TEST_F(KeyFiles, FailWhenTheSystemCannotReadTheirEnd) {
  write_file(file("k"), "a=1\n");
  STG::NameValueSeq seq;
  for (const std::uint64_t nth : {1U}) {
    const auto fault = os::faults::fail(Call::read, kRefused, nth);
    EXPECT_EQ(read("k", seq), 1);
  }
  EXPECT_TRUE(seq.empty());
}

}  // namespace
