#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/os/os.h"
#include "tests/support/os_faults.h"
#include "tests/support/scratch.h"
#include "tests/support/storage_peer.h"
#include "tests/unit/storage_documents_fixture.h"
#include "vu_storage.h"

// Reading, writing and closing open documents, and handles that come open.

namespace {

using Peer = vu_storage_test_peer;
using vu_host::trace_event;
namespace faults = os::faults;

constexpr auto kUser = STG::UserRepository;
constexpr auto kDocs = STG::CorporateRepository;

// ---- reading and writing open files ------------------------------------------------------------

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
  EXPECT_FALSE(bytes.empty());
  EXPECT_EQ(facade(trace_event::error),
            Texts{"vu_storage::Read : Cannot read from file not opened"});
}

TEST_F(Documents, AreNotReadWithANegativeLength) {
  place("x.kdc", "abc");
  vu_file file;
  client.OpenRead(file, "jdoe", "x.kdc", kUser, 0);
  for (const long length : {-1L, std::numeric_limits<long>::min(),
                            // Where `long` is wider: cut to 32 bits this would ask for one byte.
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

// ---- handles that come open --------------------------------------------------------------------

/// A handle that holds another file when an operation gets it.
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

TEST_F(OpenHandles, AreOpenedOnWhatWasAskedForWithTheTraceOfTheHandle) {
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

/// The last lock that an operation asks for is that of what it opens.
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
