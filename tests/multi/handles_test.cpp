// Copies of an open handle: they are shallow, and whichever goes first closes the file for all.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/multi/remote_file.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "vu_file.h"
#include "vu_fileutf8.h"

namespace {

constexpr char kRawHandle[] =
    "on Windows a copy keeps the system's own handle value, which the next file may get";

class HandleCopies : public testing::Test {
 protected:
  void SetUp() override {
    write_file(first, "first text");
    write_file(second, "second text");
    // The first exception of a process makes its runtime open files, which would get the values of
    // handles that are closed here.
    try {
      throw vu_file_except("the first one", 0);
    } catch (const vu_file_except&) {
    }
  }

  const scratch_folder folder;
  const std::string first = folder.path("first");
  const std::string second = folder.path("second");
};

}  // namespace

TEST_F(HandleCopies, UseTheSameOpenFile) {
  vu_file original(first);
  original.open(vu_file::o_read);
  vu_file copy(original);
  std::string part;
  EXPECT_EQ(original.read(part, 6), 6);
  EXPECT_EQ(copy.read(part, 100), 4) << "goes on where the other one stopped";
  EXPECT_EQ(part, "text");
  copy.close();
  EXPECT_FALSE(copy.is_open());
  EXPECT_TRUE(original.is_open()) << "it does not know";

  const recording_sink sink;
  EXPECT_THROW(original.read(part, 1), vu_file_except);
  original.close();
  EXPECT_EQ(sink.count(vu_host::trace_event::error, "close file : " + first), 1U);
}

TEST_F(HandleCopies, GiveTheLockBackWithTheFirstThatGoes) {
  vu_file original(first);
  original.open(vu_file::o_write);
  remote_file other(first);
  {
    const vu_file copy(original);
    EXPECT_EQ(other.try_open("read"), "open, refused");
    other.close();
  }
  EXPECT_EQ(other.try_open("read"), "open, locked");
}

TEST_F(HandleCopies, DoNotCloseTheFileThatWasOpenedAfterTheirs) {
#if defined(_WIN32)
  GTEST_SKIP() << kRawHandle;
#else
  static_cast<void>(kRawHandle);
  vu_file next(second);
  {
    vu_file original(first);
    original.open(vu_file::o_write);
    const vu_file stale(original);
    original.close();
    next.open(vu_file::o_append);  // gets the descriptor that was closed a moment ago
  }
  remote_file other(second);
  EXPECT_EQ(other.try_open("read"), "open, refused") << "its lock is still there";
  EXPECT_EQ(next.write(", more"), 6);
  std::string content;
  next.rewind();
  EXPECT_EQ(next.read(content, 0), 17);
  next.close();
  EXPECT_EQ(read_file(second), "second text, more");
#endif
}

TEST_F(HandleCopies, NeitherReadNorWriteTheFileThatWasOpenedAfterTheirs) {
#if defined(_WIN32)
  GTEST_SKIP() << kRawHandle;
#else
  vu_file original(first);
  original.open(vu_file::o_append);
  vu_file stale(original);
  original.close();
  vu_file next(second);
  next.open(vu_file::o_append);

  const recording_sink sink;
  std::string content;
  EXPECT_THROW(stale.read(content, 6), vu_file_except);
  EXPECT_EQ(stale.write("not wanted here"), 0);
  stale.clear();
  stale.close();
  EXPECT_EQ(sink.count(vu_host::trace_event::error, "read file : " + first), 1U);
  EXPECT_EQ(sink.count(vu_host::trace_event::error, "write file : " + first), 1U);
  EXPECT_EQ(sink.count(vu_host::trace_event::error, "Can't truncate file  : " + first), 1U);
  EXPECT_EQ(sink.count(vu_host::trace_event::error, "Can't unlock file : " + first), 1U);
  EXPECT_EQ(sink.count(vu_host::trace_event::error, "close file : " + first), 1U);
  next.close();
  EXPECT_EQ(read_file(second), "second text");
#endif
}

TEST_F(HandleCopies, StayHarmlessOverManyOpens) {
#if defined(_WIN32)
  GTEST_SKIP() << kRawHandle;
#else
  // More than the handles that rest before their number is used again.
  constexpr int kRounds = 3000;
  std::vector<vu_fileutf8> stale;
  stale.reserve(kRounds);
  for (int round = 0; round < kRounds; ++round) {
    vu_fileutf8 file{vu_utf8string(first)};
    file.open(vu_file::o_read);
    stale.push_back(file);
    file.close();
  }
  vu_file next(second);
  next.open(vu_file::o_read);
  std::string content;
  for (vu_fileutf8& each : stale) ASSERT_THROW(each.read(content, 1), vu_file_except);
  stale.clear();
  EXPECT_EQ(next.read(content, 0), 11);
  EXPECT_EQ(content, "second text");
#endif
}
