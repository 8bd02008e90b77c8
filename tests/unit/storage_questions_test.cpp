// Queries about documents, and open documents.

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>
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

TEST_F(DocumentQuestions, FindAVersionAndItsPath) {
  store("jdoe", "x.kdc", kDocs, 5);
  EXPECT_TRUE(client.IsFileExist("jdoe", "x.kdc", kDocs, 5, &folder, &physical));
  EXPECT_EQ(folder, area("docs") + "\\jdoe\\00000062");
  EXPECT_EQ(physical, "00000001.kdc");
}

TEST_F(DocumentQuestions, FindAVersionWithoutOptionalArguments) {
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
  // The index is not read.
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

TEST_F(DocumentQuestions, ReturnTheLatestTimestamp) {
  store("jdoe", "x.kdc", kDocs, 10);
  store("jdoe", "x.kdc", kDocs, 30);
  store("jdoe", "x.kdc", kDocs, 20);
  EXPECT_EQ(vu_storage::getLattestTimestamp("jdoe", "x.kdc", kDocs), 30);
}

TEST_F(DocumentQuestions, ReturnZeroWhenTheFolderContainsNoVersion) {
  store("jdoe", "x.kdc", kUser, 10);
  EXPECT_EQ(vu_storage::getLattestTimestamp("jdoe", "y.kdc", kUser), 0);
}

TEST_F(DocumentQuestions, ReturnMinusOneWithoutAnEntryOrAFolder) {
  vu_file::remove(area("user"));
  EXPECT_EQ(vu_storage::getLattestTimestamp("jdoe", "", kUser), -1);
  EXPECT_FALSE(folder_exists(area("user")));
  EXPECT_EQ(vu_storage::getLattestTimestamp("jdoe", "x.kdc", kUser), -1);
  // The area is created; the owner's folder is not.
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

TEST_F(DocumentQuestions, ReturnTheLastVersionOfAFolder) {
  store("jdoe", "x.kdc", kUser, 10);
  store("jdoe", "x.kdc", kUser, 7);
  const std::string owner = area("user") + "\\jdoe";
  long timestamp = -3;
  EXPECT_TRUE(Peer::getLastVersion(owner, "x.kdc", timestamp));
  EXPECT_EQ(timestamp, 10);
  EXPECT_FALSE(Peer::getLastVersion(owner, "y.kdc", timestamp));
  EXPECT_EQ(timestamp, 0);
}

TEST_F(DocumentQuestions, ReturnThePhysicalNameInAFolder) {
  store("jdoe", "x.kdc", kUser, 10);
  const std::string owner = area("user") + "\\jdoe";
  EXPECT_FALSE(vu_storage::getIndexNameFromDocName(owner, "x.kdc", 11, physical));
  EXPECT_EQ(physical, "(physical)");
  EXPECT_TRUE(vu_storage::getIndexNameFromDocName(owner, "x.kdc", 10, physical));
  EXPECT_EQ(physical, "00000001.kdc");
}

TEST_F(DocumentQuestions, ReturnNoPhysicalNameWhenTheIndexThrows) {
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

TEST_F(DocumentQuestions, CreateTheIndexOfAFolderOnRequest) {
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

// Reading, writing and closing open documents, and handles that are already open.

using Peer = vu_storage_test_peer;
using vu_host::trace_event;
namespace faults = os::faults;

TEST_F(Documents, AreReadInPieces) {
  const std::string path = place("x.kdc", "abcdef");
  vu_file file;
  client.OpenRead(file, "jdoe", "x.kdc", kUser, 0);
  std::string bytes = "before";
  client.Read(file, bytes, 2);
  EXPECT_EQ(bytes, "ab");
  client.Read(file, bytes, 3);
  EXPECT_EQ(bytes, "cde");
  client.Read(file, bytes, 100);
  EXPECT_EQ(bytes, "f");
  client.Read(file, bytes, 100);
  EXPECT_EQ(bytes, "");
  file.rewind();
  client.Read(file, bytes, 0);
  EXPECT_EQ(bytes, "abcdef");
  client.Close(file);
  EXPECT_TRUE(facade(trace_event::error).empty());
}

TEST_F(Documents, GiveNothingWhenTheFileIsNotOpen) {
  vu_file file;
  std::string bytes = "before";
  client.Read(file, bytes, 0);
  EXPECT_EQ(bytes, "");
  EXPECT_EQ(facade(trace_event::error),
            Texts{"vu_storage::Read: vu_file::read : read op in write or truncate access file"});
}

TEST_F(Documents, GiveNothingWhenTheSystemCannotRead) {
  place("x.kdc", "abc");
  vu_file file;
  client.OpenRead(file, "jdoe", "x.kdc", kUser, 0);
  const auto broken = faults::fail(faults::Call::read, kRefused);
  std::string bytes = "before";
  client.Read(file, bytes, 3);
  EXPECT_EQ(bytes, "");
  EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::Read: throw exception on read"});
}

TEST_F(Documents, LeaveTheBufferToTheFileAfterAnyOtherException) {
  place("x.kdc", "abc");
  vu_file file;
  client.OpenRead(file, "jdoe", "x.kdc", kUser, 0);
  std::string expected = "before";
  std::string bytes = "before";
  {
    const auto raised = faults::throw_from(faults::Call::read, std::runtime_error("odd"));
    EXPECT_THROW(file.read(expected, 3), std::runtime_error);
  }
  {
    const auto raised = faults::throw_from(faults::Call::read, std::runtime_error("odd"));
    client.Read(file, bytes, 3);
    EXPECT_EQ(raised.hits(), 1U);
  }
  EXPECT_EQ(bytes, expected);
  EXPECT_EQ(facade(trace_event::error),
            Texts{"vu_storage::Read : Cannot read from file not opened"});
}

TEST_F(Documents, AreNotReadWithANegativeLength) {
  place("x.kdc", "abc");
  vu_file file;
  client.OpenRead(file, "jdoe", "x.kdc", kUser, 0);
  for (const long length : {-1L, std::numeric_limits<long>::min(),
                            // Where `long` is wider, cutting this to 32 bits would request one
                            // byte.
                            sizeof(long) > 4 ? static_cast<long>(-4294967295LL) : -2L}) {
    sink.clear();
    std::string bytes = "before";
    client.Read(file, bytes, length);
    EXPECT_EQ(bytes, "") << length;
    EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::Read: throw exception on read"})
        << length;
  }
}

TEST_F(Documents, AreNotWrittenThroughAFileOpenForReading) {
  const std::string path = place("x.kdc", "abc");
  vu_file file;
  client.OpenRead(file, "jdoe", "x.kdc", kUser, 0);
  client.Write(file, "def");
  client.Close(file);
  EXPECT_EQ(read_file(path), "abc");
  EXPECT_EQ(facade(trace_event::error),
            Texts{"vu_storage::Write : vu_file::write : write operation in read access file"});
}

TEST_F(Documents, AreNotWrittenAfterAnyOtherException) {
  vu_file file;
  EXPECT_TRUE(client.OpenWrite2(file, "jdoe", "x.kdc", kUser, true, 0));
  const auto raised = faults::throw_from(faults::Call::write, std::runtime_error("odd"));
  client.Write(file, "abc");
  EXPECT_EQ(raised.hits(), 1U);
  EXPECT_EQ(facade(trace_event::error), Texts{"vu_storage::Write : Cannot Write to file"});
}

TEST_F(Documents, AreClosedWithoutTouchingTheIndex) {
  vu_file file;
  EXPECT_TRUE(client.OpenWrite2(file, "jdoe", "x.kdc", kUser, true, 0));
  const std::string index = area("user") + "\\jdoe\\index.dat";
  set_modify_time(index, 1'000);
  client.Close(file);
  EXPECT_FALSE(file.is_open());
  EXPECT_EQ(get_modify_time(index), 1'000);
  client.Close(file);
  EXPECT_TRUE(facade(trace_event::error).empty());
}

TEST_F(Documents, AreClosedWithATraceWhenTheInitialisationFails) {
  vu_file file;
  Peer::reset();
  {
    FailingTemporaryFiles failing{vu_file_except("no folder")};
    vu_host::install({&sink, nullptr, &failing, nullptr});
    client.Close(file);
    EXPECT_EQ(facade(trace_event::error), Texts{"Error in vu_storage::Close : no folder"});
  }
  sink.clear();
  {
    FailingTemporaryFiles failing{std::runtime_error("odd")};
    vu_host::install({&sink, nullptr, &failing, nullptr});
    EXPECT_THROW(client.Close(file), std::runtime_error);
    EXPECT_TRUE(facade(trace_event::error).empty());
  }
  vu_host::install({&sink});
}

/// Handles that have another file open when they are passed to an operation.
class OpenHandles : public Documents {
 protected:
  OpenHandles() {
    write_file(scratch.path("other"), "");
    store("there.kdc", kUser, 0, "abc");
  }
  template <class Operation>
  bool is_open_after(Operation operation) {
    vu_file file;
    file.open(scratch.path(), "other", vu_file_base::o_append);
    operation(file);
    return file.is_open();
  }
};

TEST_F(OpenHandles, AreLeftClosedByWhatOpensNothing) {
  store("there.kdc", kDocs, 5, "abc");
  const auto write = [&](const std::string& entry, bool replace) {
    return [this, entry, replace](vu_file& file) {
      client.OpenWrite2(file, "jdoe", entry, kUser, replace, 0);
    };
  };
  const auto read = [&](const std::string& entry) {
    return [this, entry](vu_file& file) { client.OpenRead(file, "jdoe", entry, kUser, 0); };
  };
  EXPECT_FALSE(is_open_after(write("there.kdc", false)));
  EXPECT_FALSE(is_open_after(write("", true)));
  EXPECT_FALSE(is_open_after(read("missing.kdc")));
  EXPECT_FALSE(is_open_after(read("")));
  EXPECT_FALSE(is_open_after([&](vu_file& file) {
    client.OpenRead(file, vu_utf8string("jdoe"), vu_utf8string("missing"), kUser, 0);
  }));
  unsigned long size = 7;
  for (const std::string entry : {"", "missing.kdc", "there.kdc"}) {
    EXPECT_FALSE(is_open_after([&](vu_file& file) {
      client.OpenReadSubPart(file, "u", "jdoe", entry, "pdf@a", "part", 5);
    }));
    EXPECT_FALSE(is_open_after([&](vu_file& file) {
      client.OpenReadSubPartEx(file, "u", "jdoe", entry, "pdf@a", "part", 5, size);
    }));
    EXPECT_EQ(size, 0U);
    EXPECT_FALSE(is_open_after(
        [&](vu_file& file) { client.OpenWriteSubPart(file, "jdoe", entry, "pdf@a", "", 5); }));
  }
  EXPECT_FALSE(is_open_after([&](vu_file& file) {
    client.OpenWriteSubPart(file, "jdoe", "missing.kdc", "pdf@a", "part", 5);
  }));
}

TEST_F(OpenHandles, AreOpenedOnTheRequestedFileWithTheTraceOfTheHandle) {
  vu_file file;
  file.open(scratch.path(), "other", vu_file_base::o_append);
  sink.clear();
  client.OpenRead(file, "jdoe", "there.kdc", kUser, 0);
  EXPECT_TRUE(file.is_open());
  std::string bytes;
  client.Read(file, bytes, 0);
  EXPECT_EQ(bytes, "abc");
  EXPECT_EQ(
      sink.count(trace_event::error, "file is already opened, it will be closed and reopened !!!"),
      1U);
}

/// The last lock of an operation is that of the file that it opens.
TEST_F(OpenHandles, AreLeftClosedWhenAskingForTheirLockRaisesAFileException) {
  store("there.kdc", kDocs, 5, "abc");
  vu_file part;
  client.OpenWriteSubPart(part, "jdoe", "there.kdc", "pdf@a", "part", 5);
  part.close();
  set_modify_time(part.getFilePath(), 4'000'000'000 / 2);
  const std::vector<std::function<void(vu_file&)>> operations = {
      [&](vu_file& file) { client.OpenRead(file, "jdoe", "there.kdc", kUser, 0); },
      [&](vu_file& file) { client.OpenWrite2(file, "jdoe", "there.kdc", kUser, true, 0); },
      [&](vu_file& file) {
        client.OpenWriteSubPart(file, "jdoe", "there.kdc", "pdf@a", "part", 5);
      },
      [&](vu_file& file) {
        client.OpenReadSubPart(file, "u", "jdoe", "there.kdc", "pdf@a", "part", 5);
      }};
  for (const auto& operation : operations) {
    vu_file file;
    const auto locks = calls_of(faults::Call::lock, [&] { operation(file); });
    EXPECT_TRUE(file.is_open());
    file.close();
    const auto raised = faults::throw_from(faults::Call::lock, vu_file_except("planned"), locks);
    operation(file);
    EXPECT_EQ(raised.hits(), 1U);
    EXPECT_FALSE(file.is_open());
  }
}

TEST_F(Documents, GoOnWhenTheirFolderIsNotResolved) {
  const auto raised = faults::throw_from(faults::Call::create_directory, vu_file_except("full"));
  vu_file file;
  EXPECT_FALSE(client.OpenWrite2(file, "new", "x.kdc", kUser, true, 0));
  EXPECT_EQ(facade(trace_event::error), (Texts{"vu_storage::createUserOrDomainNameDirectory : full",
                                               "vu_storage::OpenWrite : throw exception on open"}));
}

TEST_F(Documents, AreClosedAlsoWhenTheInitialisationFails) {
  store("x.kdc", kUser, 0, "abc");
  FailingTemporaryFiles failing{std::runtime_error("planned")};
  vu_file file;
  client.OpenRead(file, "jdoe", "x.kdc", kUser, 0);
  vu_host::install({&sink, nullptr, &failing, nullptr});
  Peer::reset();
  EXPECT_THROW(client.Close(file), std::runtime_error);
  EXPECT_FALSE(file.is_open());
  vu_host::install({&sink});
}

}  // namespace
