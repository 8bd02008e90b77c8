#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <future>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/host_services.h"
#include "tests/unit/storage_fixture.h"

namespace {

using os::faults::Call;
using vu_host::trace_event;
using vu_host::trace_level;
using Peer = vu_storage_test_peer;

TEST_F(SubParts, EverySelectorIsWrittenAndReadWhereItsSideOfTheRuleSays) {
  struct Case {
    const char* selector;
    const char* written;
    const char* read;
    const char* preload;
  };
  for (const Case& c : {
           Case{"html@p1", "\\html\\p1", "\\html\\p1", "\\html\\preload"},
           Case{"pdf@p1", "\\pdf\\p1", "\\pdf\\p1", "\\pdf\\preload"},
           Case{"xls", "\\xls", "\\xls", "\\preload"},
           Case{"html", "\\html", "\\html", "\\preload"},
           // Split at the first "@"; the rest may contain more.
           Case{"html@a@b", "\\html\\a@b", "\\html\\a@b", "\\html\\preload"},
           Case{"pdf@a@b", "\\pdf\\a@b", "\\pdf\\a@b", "\\pdf\\preload"},
           // Written in two nested folders, but searched in one.
           Case{"a@b", "\\a\\b", "\\a@b", "\\preload"},
           Case{"xhtml@b", "\\xhtml\\b", "\\xhtml@b", "\\preload"},
           Case{"HTML@b", "\\HTML\\b", "\\HTML@b", "\\preload"},
           Case{"@b", "\\\\b", "\\@b", "\\preload"},
           Case{"a@", "\\a\\", "\\a@", "\\preload"},
           Case{"html@", "\\html\\", "\\html\\", "\\html\\preload"},
       }) {
    SCOPED_TRACE(c.selector);
    open_for_writing(c.selector);
    EXPECT_EQ(opened(), root() + c.written + "\\" + kPart);
    EXPECT_TRUE(folder_exists(root() + c.written));
    file().close();

    const Decision d = decide(c.selector);
    EXPECT_EQ(d.part_dir, root() + c.read);
    EXPECT_EQ(d.preload_dir, root() + c.preload);
    EXPECT_TRUE(folder_exists(root() + c.read));
    EXPECT_FALSE(folder_exists(root() + c.preload));
  }
}

TEST_F(SubParts, WhatIsWrittenIsReadWhenBothSidesAgree) {
  for (const char* selector : {"html@p1", "pdf@p1", "xls"}) {
    SCOPED_TRACE(selector);
    write_part(selector, "bytes");
    open_for_reading(selector);
    ASSERT_TRUE(file().is_open());
    EXPECT_EQ(read_and_close(), "bytes");
  }
  write_part("a@b", "bytes");
  open_for_reading("a@b");
  EXPECT_EQ(opened(), "closed");
}

TEST_F(SubParts, TheRootIsTheDocumentFileAndAnUnderscoreAndThenTheStampIfAny) {
  write_part("xls", "without");
  EXPECT_EQ(read_file(document() + "_\\xls\\" + kPart), "without");

  vu_storage::setTdcTimeStamp("2024");
  EXPECT_EQ(decide("xls").way, 2);
  EXPECT_FALSE(file_exists(document() + "_2024"));
  write_part("xls", "with");
  EXPECT_EQ(read_file(document() + "_2024\\xls\\" + kPart), "with");
  EXPECT_EQ(decide("xls").part_dir, document() + "_2024\\xls");

  vu_storage::setTdcTimeStamp("");
  EXPECT_EQ(decide("xls").part_dir, document() + "_\\xls");
}

TEST_F(SubParts, FoldersAreMadeFromTheRootDownwards) {
  // The folders that exist after each creation of a folder.
  std::vector<std::vector<bool>> seen;
  const auto note = [&] {
    seen.push_back({folder_exists(root()), folder_exists(root() + "\\html"),
                    folder_exists(root() + "\\html\\p1")});
  };
  const std::vector<std::vector<bool>> in_order = {
      {true, false, false}, {true, true, false}, {true, true, true}};
  {
    const auto hook =
        os::faults::after(Call::create_directory, note, 1, os::faults::Times::kLasting);
    open_for_writing("html@p1");
  }
  EXPECT_EQ(seen, in_order);

  seen.clear();
  file().close();
  std::filesystem::remove_all(native(root() + "\\html"));
  const auto hook = os::faults::after(Call::create_directory, note, 1, os::faults::Times::kLasting);
  decide("html@p1");
  EXPECT_EQ(seen, (std::vector<std::vector<bool>>{in_order[1], in_order[2]}));
}

TEST_F(SubParts, AnUpToDatePartIsOpened) {
  make_file(root() + "\\xls", "part", 1000);
  open_for_reading("xls");
  EXPECT_EQ(opened(), root() + "\\xls\\" + kPart);
  EXPECT_EQ(read_and_close(), "part");
  EXPECT_EQ(facade(trace_event::success), Texts{"case 0 : Doc is up to date"});
}

TEST_F(SubParts, ANewerPreloadCopyOverwritesThePartAndStaysUpToDateWithItsTime) {
  make_file(root() + "\\html\\p1", "old part", 1500);
  make_file(root() + "\\html\\preload", "preloaded", 2000);
  open_for_reading("html@p1");
  EXPECT_EQ(opened(), root() + "\\html\\p1\\" + kPart);
  EXPECT_EQ(read_and_close(), "preloaded");
  EXPECT_EQ(facade(trace_event::success), Texts{"case 1: Doc must be updated from preload"});
  EXPECT_EQ(get_modify_time(root() + "\\html\\p1\\" + kPart), 2000);

  sink.clear();
  open_for_reading("html@p1");
  EXPECT_EQ(read_and_close(), "preloaded");
  EXPECT_EQ(facade(trace_event::success), Texts{"case 0 : Doc is up to date"});
}

TEST_F(SubParts, APreloadCopyOlderThanTheDocumentIsServedOnceAndThenRegenerated) {
  set_modify_time(document(), 3000);
  make_file(root() + "\\pdf\\preload", "preloaded", 2000);
  open_for_reading("pdf@p1");
  EXPECT_EQ(read_and_close(), "preloaded");
  EXPECT_EQ(facade(trace_event::success), Texts{"case 1: Doc must be updated from preload"});
  EXPECT_EQ(get_modify_time(root() + "\\pdf\\p1\\" + kPart), 2000);

  // The copy keeps the time of its source, which is older than the document.
  sink.clear();
  open_for_reading("pdf@p1");
  EXPECT_EQ(opened(), "closed");
  EXPECT_EQ(facade(trace_event::success), Texts{});
  EXPECT_EQ(facade(trace_level::xl), Texts{"Document must to be regenerated"});
}

TEST_F(SubParts, APreloadCopyThatCannotBeCopiedOpensNothing) {
  make_file(root() + "\\xls", "old part", 1500);
  make_file(root() + "\\preload", "preloaded", 2000);
  {
    const auto fault = os::faults::fail(Call::copy, kRefused);
    open_for_reading("xls");
    EXPECT_EQ(fault.hits(), 1U);
  }
  EXPECT_EQ(opened(), "closed");
  EXPECT_EQ(facade(trace_event::success), Texts{"case 1: Doc must be updated from preload"});
  EXPECT_EQ(facade(trace_event::warning), Texts{});
  EXPECT_EQ(facade(trace_event::error), Texts{});
}

TEST_F(SubParts, APreloadCopyThatIsMissingThoughItCountsAsNewerOpensNothing) {
  // The low 32 bits of this time are negative; a missing file has the time 0.
  make_file(root() + "\\xls", "part", std::int64_t{1} << 31);
  open_for_reading("xls");
  EXPECT_EQ(opened(), "closed");
  EXPECT_EQ(facade(trace_event::success), Texts{"case 1: Doc must be updated from preload"});
  EXPECT_EQ(read_file(root() + "\\xls\\" + kPart), "part");
}

TEST_F(SubParts, APartThatMustBeRegeneratedStaysClosed) {
  make_file(root() + "\\xls", "part", 999);
  open_for_reading("xls");
  EXPECT_EQ(opened(), "closed");
  EXPECT_EQ(facade(trace_level::xl), Texts{"Document must to be regenerated"});
  EXPECT_EQ(sink.count(traced::kind_t::event), 1U) << "only the missing preload copy is told of";
}

TEST_F(SubParts, ADocumentWithoutATimeIsAnErrorOfReadingAndOpensNothing) {
  make_file(root() + "\\xls", "part", 2000);
  set_modify_time(document(), 0);
  open_for_reading("xls");
  EXPECT_EQ(opened(), "closed");
  EXPECT_EQ(facade(trace_event::error),
            Texts{"case -1 : vu_storage::OpenReadSubPart : unknown error, force retrieve doc"});
}

TEST_F(SubParts, WithoutAnEntryNothingIsReadOrWritten) {
  vu_storage& facade = facade_object();
  facade.OpenReadSubPart(file(), "amy", kOwner, "", "xls", kPart, kStamp);
  EXPECT_EQ(opened(), "closed");
  facade.OpenWriteSubPart(file(), "nobody", "", "xls", kPart, kStamp);
  EXPECT_EQ(opened(), "closed");
  EXPECT_FALSE(folder_exists(Peer::corp_path() + "\\nobody"));
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
}

TEST_F(SubParts, ReadingBeginsWithItsArguments) {
  open_for_reading("html@p1");
  EXPECT_EQ(facade(trace_level::xs),
            Texts{"strUser:amy\t strRepo:jdoe\t strEntry:sales.kdc\t strType:html@p1"
                  "\t strPartID:part.out\t docTime:42"});
}

TEST_F(SubParts, ATimestampBeyondThirtyTwoBitsCountsAsTheLargest) {
  // On Windows `long` has 32 bits.
  constexpr long kLargest = std::numeric_limits<long>::max();
  facade_object().OpenReadSubPart(file(), "amy", kOwner, kEntry, "xls", kPart, kLargest);
  EXPECT_EQ(facade(trace_level::xs),
            Texts{"strUser:amy\t strRepo:jdoe\t strEntry:sales.kdc\t strType:xls"
                  "\t strPartID:part.out\t docTime:2147483647"});
  facade_object().OpenWriteSubPart(file(), kOwner, kEntry, "xls", kPart, kLargest);
  EXPECT_EQ(facade(trace_event::error),
            Texts{"OpenWriteSubPart : entry not found ! entry=sales.kdc TS=2147483647"});
}

TEST_F(SubParts, AnUpToDatePartWithoutAFileIsAWarning) {
  store("table.kdf");
  make_folder(root());
  open_for_reading("xls");
  EXPECT_EQ(opened(), "closed");
  EXPECT_EQ(facade(trace_event::success), Texts{"case 0 : Doc is up to date"});
  EXPECT_EQ(facade(trace_event::warning),
            Texts{"vu_storage::OpenReadSubPart: throw exception on open"});
}

TEST_F(SubParts, APreloadCopyThatWasTakenAndCannotBeOpenedIsAWarning) {
  make_file(root() + "\\preload", "preloaded", 2000);
  // The first open is that of the index.
  const auto fault = os::faults::fail(Call::open, kRefused, 2);
  open_for_reading("xls");
  EXPECT_EQ(opened(), "closed");
  EXPECT_EQ(facade(trace_event::warning),
            Texts{"vu_storage::OpenReadSubPart: throw exception on open"});
  EXPECT_EQ(read_file(root() + "\\xls\\" + kPart), "preloaded");
}

TEST_F(SubParts, AnyOtherExceptionWhileReadingIsAnErrorAndLeavesTheFileClosed) {
  make_file(root() + "\\xls", "part", 2000);
  for (const Call call : {Call::open, Call::lock}) {
    SCOPED_TRACE(os::faults::name(call));
    sink.clear();
    const auto fault = os::faults::throw_from(call, std::runtime_error("planned"), 2);
    open_for_reading("xls");
    EXPECT_EQ(fault.hits(), 1U);
    EXPECT_EQ(opened(), "closed");
    EXPECT_EQ(facade(trace_event::error),
              Texts{"vu_storage::OpenReadSubPart : unknown error, force retrieve doc"});
  }
}

TEST_F(SubParts, AfterAnExceptionInTheDecisionThePartThatIsKnownIsOpened) {
  make_file(root() + "\\xls", "part", 500);
  const std::uint64_t last = calls_of(Call::stat, [&] { EXPECT_EQ(decide("xls").way, 2); });
  {
    const auto fault = os::faults::throw_from(Call::stat, std::runtime_error("planned"), last);
    open_for_reading("xls");
  }
  EXPECT_EQ(opened(), root() + "\\xls\\" + kPart);
  EXPECT_EQ(read_and_close(), "part");

  // If the folder of the sub-part is not yet known, nothing is opened and nothing else is traced.
  sink.clear();
  const auto fault = os::faults::throw_from(Call::stat, std::runtime_error("planned"), last - 2);
  open_for_reading("xls");
  EXPECT_EQ(opened(), "closed");
  EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::getBestUpdateWay : unknown error"});
  EXPECT_EQ(facade(trace_event::success), Texts{"case 0 : Doc is up to date"});
  EXPECT_EQ(facade(trace_event::warning), Texts{});
}

TEST_F(SubParts, AReaderWaitsForAWriterOfThePart) {
  make_file(root() + "\\xls", "part", 2000);
  vu_file writer(root() + "\\xls", kPart);
  writer.open(vu_file_base::o_write);
  std::future<void> reading = std::async(std::launch::async, [&] { open_for_reading("xls"); });
  EXPECT_EQ(reading.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
  writer.write("PART");
  writer.close();
  reading.get();
  EXPECT_EQ(read_and_close(), "PART");
}

TEST_F(SubParts, ThePartsSizeComesWithIt) {
  make_file(root() + "\\xls", "12345", 1000);
  EXPECT_EQ(open_with_size("xls"), 5UL);
  EXPECT_EQ(read_and_close(), "12345");
  make_file(root() + "\\xls", "", 1000);
  EXPECT_EQ(open_with_size("xls"), 0UL);
  EXPECT_TRUE(file().is_open());
}

TEST_F(SubParts, TheSizeIsZeroWheneverTheFileEndsClosed) {
  EXPECT_EQ(open_with_size("xls"), 0UL);  // no root
  make_file(root() + "\\xls", "12345", 999);
  EXPECT_EQ(open_with_size("xls"), 0UL);  // older than the document
  set_modify_time(document(), 0);
  EXPECT_EQ(open_with_size("xls"), 0UL);  // a document without a time
  EXPECT_EQ(opened(), "closed");
}

TEST_F(SubParts, ASizeBeyondTwoGigabytesIsAnUnsignedNumber) {
  make_file(root() + "\\xls", "", 1000);
  const std::string part = root() + "\\xls\\" + kPart;
  std::filesystem::resize_file(native(part), 3000000000U);
  set_modify_time(part, 1000);
  EXPECT_EQ(open_with_size("xls"), 3000000000UL);
  EXPECT_TRUE(file().is_open());
}

TEST_F(SubParts, APartWhoseSizeIsUnknownFails) {
  make_file(root() + "\\xls", "12345", 1000);
  const std::uint64_t last = calls_of(Call::stat, [&] { EXPECT_EQ(open_with_size("xls"), 5UL); });
  file().close();
  sink.clear();
  const auto fault = os::faults::throw_from(Call::stat, std::runtime_error("planned"), last);
  EXPECT_EQ(open_with_size("xls"), 0UL);
  EXPECT_EQ(opened(), "closed");
  EXPECT_EQ(facade(trace_event::error),
            Texts{"vu_storage::OpenReadSubPart : unknown error, force retrieve doc"});
}

TEST_F(SubParts, AnExistingPartIsEmptied) {
  write_part("xls", "a long text");
  write_part("xls", "short");
  EXPECT_EQ(read_file(root() + "\\xls\\" + kPart), "short");
}

TEST_F(SubParts, WritingIntoADocumentThatTheIndexDoesNotHoldIsAnError) {
  facade_object().OpenWriteSubPart(file(), kOwner, "gone.kdc", "xls", kPart, kStamp);
  EXPECT_EQ(opened(), "closed");
  EXPECT_EQ(facade(trace_event::error),
            Texts{"OpenWriteSubPart : entry not found ! entry=gone.kdc TS=42"});
  sink.clear();
  facade_object().OpenWriteSubPart(file(), kOwner, kEntry, "xls", kPart, 43);
  EXPECT_EQ(facade(trace_event::error),
            Texts{"OpenWriteSubPart : entry not found ! entry=sales.kdc TS=43"});
  EXPECT_FALSE(folder_exists(root()));
}

TEST_F(SubParts, WritingForAnOwnerWhoseFolderCannotBeMadeEndsThere) {
  const auto fault = os::faults::throw_from(Call::create_directory, std::runtime_error("planned"));
  facade_object().OpenWriteSubPart(file(), "amy", kEntry, "xls", kPart, kStamp);
  EXPECT_EQ(opened(), "closed");
  EXPECT_EQ(facade(trace_event::error),
            Texts{"vu_storage::createUserOrDomainNameDirectory : Problem, can't create " +
                  Peer::corp_path() + "\\amy"});
}

TEST_F(SubParts, APartThatCannotBeOpenedForWritingIsAnErrorWithoutABlank) {
  const auto fault = os::faults::fail(Call::open, kRefused, 2);
  open_for_writing("xls");
  EXPECT_EQ(opened(), "closed");
  EXPECT_EQ(facade(trace_event::error),
            Texts{"vu_storage::OpenWriteSubPart :throw exception on open"});
  EXPECT_TRUE(folder_exists(root() + "\\xls"));
}

TEST_F(SubParts, AFileExceptionWhileFoldersAreMadeIsAnErrorWithItsText) {
  const auto fault = os::faults::throw_from(Call::create_directory, vu_file_except("planned text"));
  open_for_writing("xls");
  EXPECT_EQ(opened(), "closed");
  EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::OpenWriteSubPart :planned text"});
}

TEST_F(SubParts, AnyOtherExceptionNamesTheFolderAsFarAsItWasBuilt) {
  const Texts built = {root(), root() + "\\html", root() + "\\html\\p1"};
  for (std::size_t n = 0; n < built.size(); ++n) {
    SCOPED_TRACE(built[n]);
    std::filesystem::remove_all(native(root()));
    sink.clear();
    const auto fault =
        os::faults::throw_from(Call::create_directory, std::runtime_error("planned"), n + 1);
    open_for_writing("html@p1");
    EXPECT_EQ(opened(), "closed");
    EXPECT_EQ(facade(trace_event::error),
              Texts{"vu_storage::OpenWriteSubPart : Can't open file for write : sDir->" + built[n] +
                    "   strPartId->part.out"});
    if (n > 0) {
      EXPECT_TRUE(folder_exists(built[n - 1])) << "what was made before stays";
    }
    EXPECT_FALSE(folder_exists(built[n]));
  }
}

TEST_F(SubParts, AnyOtherExceptionOfTheOpeningLeavesTheFileClosed) {
  for (const Call call : {Call::open, Call::lock}) {
    SCOPED_TRACE(os::faults::name(call));
    sink.clear();
    const auto fault = os::faults::throw_from(call, std::runtime_error("planned"), 2);
    open_for_writing("xls");
    EXPECT_EQ(fault.hits(), 1U);
    EXPECT_EQ(opened(), "closed");
    EXPECT_EQ(facade(trace_event::error),
              Texts{"vu_storage::OpenWriteSubPart : Can't open file for write : sDir->" + root() +
                    "\\xls   strPartId->part.out"});
  }
}

TEST_F(SubParts, TheExceptionOfTheAreaFolderIsHandledToo) {
  std::filesystem::remove_all(native(Peer::corp_path()));
  const auto fault = os::faults::throw_from(Call::create_directory, std::runtime_error("planned"));
  open_for_writing("xls");
  EXPECT_EQ(facade(trace_event::error),
            Texts{"vu_storage::OpenWriteSubPart : Can't open file for write : sDir->" +
                  Peer::corp_path() + "   strPartId->part.out"});
}

TEST_F(SubParts, TheUtf8FormsConvertTheirNamesAndCallTheNarrowOnes) {
  vu_storage& facade = facade_object();
  // Names end at the first NUL.
  const vu_utf8string owner(std::string("jdoe\0x", 6));
  const vu_utf8string entry(std::string("sales.kdc\0x", 11));
  facade.OpenWriteSubPart(file(), owner, entry, "xls", kPart, kStamp);
  EXPECT_EQ(opened(), root() + "\\xls\\" + kPart);
  file().write("12345");
  file().close();
  set_modify_time(root() + "\\xls\\" + kPart, 1000);

  sink.clear();
  facade.OpenReadSubPart(file(), vu_utf8string(std::string("amy\0x", 5)), owner, entry, "xls",
                         kPart, kStamp);
  EXPECT_EQ(opened(), root() + "\\xls\\" + kPart);
  EXPECT_EQ(StorageTest::facade(trace_level::xs),
            Texts{"strUser:amy\t strRepo:jdoe\t strEntry:sales.kdc\t strType:xls"
                  "\t strPartID:part.out\t docTime:42"});
  EXPECT_EQ(read_and_close(), "12345");

  unsigned long size = 77;
  facade.OpenReadSubPartEx(file(), vu_utf8string("amy"), owner, entry, "xls", kPart, kStamp, size);
  EXPECT_EQ(size, 5UL);
  EXPECT_EQ(read_and_close(), "12345");
}

TEST_F(SubParts, EveryOperationOpensItsScopeFirst) {
  vu_storage& facade = facade_object();
  const vu_utf8string owner(kOwner);
  const vu_utf8string entry(kEntry);
  unsigned long size = 0;
  std::string out;
  const std::vector<ScopedOperation> operations = {
      {"OpenWriteSubPart", trace_level::m,
       "vu_storage::OpenWriteSubPart: jdoe : sales.kdc : part.out",
       [&] { open_for_writing("xls"); }},
      {"OpenWriteSubPart", trace_level::xl, "",
       [&] { facade.OpenWriteSubPart(file(), owner, entry, "xls", kPart, kStamp); }},
      {"OpenReadSubPart", trace_level::m, "vu_storage::OpenReadSubPart ",
       [&] { open_for_reading("xls"); }},
      {"OpenReadSubPart", trace_level::xl, "",
       [&] { facade.OpenReadSubPart(file(), owner, owner, entry, "xls", kPart, kStamp); }},
      {"OpenReadSubPartEx", trace_level::xl, "", [&] { open_with_size("xls"); }},
      {"OpenReadSubPartEx", trace_level::xl, "",
       [&] { facade.OpenReadSubPartEx(file(), owner, owner, entry, "xls", kPart, kStamp, size); }},
      {"getBestUpdateWay", trace_level::xl, "", [&] { decide("xls"); }},
  };
  for (const ScopedOperation& operation : operations) {
    expect_scope_first(operation);
    file().close();
  }
}

TEST_F(SubParts, NoExceptionOfTheHostsHelperLeavesAnOperation) {
  FailingTemporaryFiles temporary(std::runtime_error("planned"));
  vu_host::install({.trace = &sink, .temp = &temporary});
  Peer::reset();
  open_for_writing("xls");
  open_for_reading("xls");
  EXPECT_EQ(open_with_size("xls"), 0UL);
  EXPECT_EQ(opened(), "closed");
  EXPECT_EQ(facade(trace_event::error),
            (Texts{"vu_storage::OpenWriteSubPart : Can't open file for write : sDir->"
                   "   strPartId->part.out",
                   "vu_storage::OpenReadSubPart : unknown error, force retrieve doc",
                   "vu_storage::OpenReadSubPart : unknown error, force retrieve doc"}));
}

TEST_F(SubParts, EveryPublicOperationInitialisesTheStorage) {
  fake_temporary_files temporary(scratch.path("server"));
  vu_host::install({.trace = &sink, .temp = &temporary});
  vu_storage& facade = facade_object();
  const vu_utf8string name("");
  unsigned long size = 0;
  const std::vector<std::function<void()>> operations = {
      [&] { facade.OpenWriteSubPart(file(), "", "", "", "", 0); },
      [&] { facade.OpenWriteSubPart(file(), name, name, "", "", 0); },
      [&] { facade.OpenReadSubPart(file(), "", "", "", "", "", 0); },
      [&] { facade.OpenReadSubPart(file(), name, name, name, "", "", 0); },
      [&] { facade.OpenReadSubPartEx(file(), "", "", "", "", "", 0, size); },
      [&] { facade.OpenReadSubPartEx(file(), name, name, name, "", "", 0, size); },
  };
  for (std::size_t n = 0; n < operations.size(); ++n) {
    SCOPED_TRACE(n);
    Peer::reset();
    operations[n]();
    EXPECT_EQ(Peer::init_done(), 1234);
    EXPECT_EQ(Peer::storage_path(), scratch.path("server"));
  }
}

}  // namespace
