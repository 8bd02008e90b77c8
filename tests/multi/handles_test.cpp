// The whole-file lock between processes, from open to close.

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "tests/multi/helpers.h"
#include "tests/support/process.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "vu_file.h"
#include "vu_fileutf8.h"

namespace {

constexpr char kNotEnforced[] =
    "needs a system that keeps handles without a lock from locked files; Wine does not";

class FileLocks : public testing::Test {
 protected:
  void SetUp() override { write_file(path, "first text"); }

  const scratch_folder folder;
  const std::string path = folder.path("document");
};

using EnforcedFileLocks = FileLocks;

#if !defined(_WIN32)
/// args: a folder. Says which files in it are open when the process starts.
int say_open_files(const std::vector<std::string>& args) {
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code error;
    const std::string target = std::filesystem::read_symlink(entry.path(), error).native();
    if (target.rfind(args.at(0), 0) == 0) say(target);
  }
  say("end");
  return 0;
}
REGISTER_ROLE(say_open_files, say_open_files)
#endif

}  // namespace

TEST_F(FileLocks, LetAReaderWaitForTheWriter) {
  vu_file writer(path);
  writer.open(vu_file::o_truncate);
  remote_file reader(path);
  reader.begin_open("read");
  writer.write("one half, ");
  EXPECT_TRUE(reader.stays_silent());
  writer.write("other half");
  writer.close();
  EXPECT_TRUE(reader.hears("locked"));
  EXPECT_EQ(reader.read(), "one half, other half") << "never a half-written file";
}

TEST_F(FileLocks, LetReadersShare) {
  remote_file first(path);
  remote_file second(path);
  first.open("read");
  second.open("read");
  vu_file third(path);
  bool refused = true;
  ASSERT_TRUE(third.try_open(vu_file::o_read, refused, true));
  EXPECT_FALSE(refused);
  EXPECT_TRUE(third.is_locked());
  EXPECT_EQ(first.read(), "first text");
  EXPECT_EQ(second.read(), "first text");
}

TEST_F(FileLocks, LetAWriterWaitForTheLastReader) {
  remote_file first(path);
  remote_file second(path);
  first.open("read");
  second.open("read");
  remote_file writer(path);
  writer.begin_open("truncate");
  EXPECT_TRUE(writer.stays_silent());
  first.close();
  EXPECT_TRUE(writer.stays_silent());
  EXPECT_EQ(second.read(), "first text") << "nothing was cut while it waits";
  second.close();
  EXPECT_TRUE(writer.hears("locked"));
  EXPECT_EQ(read_file(path), "");
  EXPECT_EQ(writer.write("new"), "3");
  writer.close();
  EXPECT_EQ(read_file(path), "new");
}

TEST_F(FileLocks, ExcludeEveryModeThatWrites) {
  for (const char* const held : {"write", "append", "truncate"}) {
    for (const char* const wanted : {"read", "write", "append", "truncate"}) {
      remote_file holder(path);
      remote_file other(path);
      holder.open(held);
      EXPECT_EQ(other.try_open(wanted), "open, refused") << held << " " << wanted;
      holder.close();
      other.close();
      EXPECT_EQ(other.try_open(wanted), "open, locked") << held << " " << wanted;
    }
  }
}

TEST_F(FileLocks, LetWritersWaitInTurn) {
  auto first = std::make_unique<remote_file>(path);
  remote_file second(path);
  remote_file third(path);
  first->open("append");
  second.begin_open("append");
  third.begin_open("append");
  EXPECT_EQ(first->write(", one"), "5");
  EXPECT_TRUE(second.stays_silent());
  EXPECT_TRUE(third.stays_silent());
  first->close();
  // Either process may get the lock first, but only one of them.
  const bool second_has_it = second.next_line(std::chrono::milliseconds(500)) == "locked";
  remote_file& now = second_has_it ? second : third;
  remote_file& later = second_has_it ? third : second;
  EXPECT_TRUE(second_has_it || now.hears("locked"));
  EXPECT_TRUE(later.stays_silent());
  EXPECT_EQ(now.write(", two"), "5");
  now.close();
  EXPECT_TRUE(later.hears("locked"));
  EXPECT_EQ(later.write(", three"), "7");
  later.close();
  EXPECT_EQ(read_file(path), "first text, one, two, three");
}

TEST_F(FileLocks, AreRefusedAtOnceToACallerThatDoesNotWait) {
  remote_file writer(path);
  writer.open("write");
  vu_file reader(path);
  bool refused = false;
  EXPECT_TRUE(reader.try_open(vu_file::o_read, refused, true));
  EXPECT_TRUE(refused);
  EXPECT_TRUE(reader.is_open()) << "open all the same";
  EXPECT_FALSE(reader.is_locked());
}

TEST_F(FileLocks, KeepTheTextFromATruncationThatWasRefused) {
  remote_file reader(path);
  reader.open("read");
  vu_file writer(path);
  bool refused = false;
  ASSERT_TRUE(writer.try_open(vu_file::o_truncate, refused, true));
  EXPECT_TRUE(refused);
  EXPECT_EQ(reader.read(), "first text");
  writer.close();
  EXPECT_EQ(reader.read(), "first text");
}

TEST_F(EnforcedFileLocks, KeepAHandleThatWasRefusedFromReading) {
  if (!locks_are_enforced()) GTEST_SKIP() << kNotEnforced;
  remote_file writer(path);
  writer.open("write");
  EXPECT_EQ(writer.write("FIRST"), "5");
  remote_file reader(path);
  ASSERT_EQ(reader.try_open("read"), "open, refused");
  EXPECT_EQ(reader.read(), "exception throw exception on read");
  writer.close();
  EXPECT_EQ(reader.read(), "FIRST text") << "nobody holds it any more";
}

TEST_F(EnforcedFileLocks, KeepAHandleThatWasRefusedFromWriting) {
  if (!locks_are_enforced()) GTEST_SKIP() << kNotEnforced;
  remote_file reader(path);
  reader.open("read");
  vu_file writer(path);
  bool refused = false;
  ASSERT_TRUE(writer.try_open(vu_file::o_write, refused, true));
  ASSERT_TRUE(refused);
  const recording_sink sink;
  EXPECT_EQ(writer.write("FIRST"), 0);
  EXPECT_EQ(sink.count(vu_host::trace_event::error, "write file : " + path), 1U);
  EXPECT_EQ(reader.read(), "first text");
  reader.close();
  EXPECT_EQ(writer.write("FIRST"), 5) << "nobody holds it any more";
  writer.close();
  EXPECT_EQ(read_file(path), "FIRST text");
}

TEST_F(EnforcedFileLocks, LetAHandleThatWasRefusedReadWhatOthersOnlyRead) {
  remote_file reader(path);
  reader.open("read");
  vu_file refused_one(path);
  bool refused = false;
  ASSERT_TRUE(refused_one.try_open(vu_file::o_append, refused, true));
  ASSERT_TRUE(refused);
  std::string content;
  EXPECT_EQ(refused_one.read(content, 0), 10);
  EXPECT_EQ(content, "first text");
}

TEST_F(FileLocks, EndWithAHolderThatIsKilled) {
  remote_file holder(path);
  holder.open("write");
  remote_file waiting(path);
  waiting.begin_open("read");
  EXPECT_TRUE(waiting.stays_silent());
  holder.kill();
  EXPECT_TRUE(waiting.hears("locked"));
  EXPECT_EQ(holder.wait(), child_process::kKilled);
}

TEST_F(FileLocks, EndWithAHolderThatExitsWithoutClosing) {
  remote_file holder(path);
  holder.open("write");
  remote_file waiting(path);
  waiting.begin_open("append");
  EXPECT_TRUE(waiting.stays_silent());
  holder.close_input();
  EXPECT_TRUE(waiting.hears("locked"));
  EXPECT_EQ(holder.wait(), 0);
}

#if !defined(_WIN32)
// Windows has no public call that stops a process.

TEST_F(FileLocks, StayWithAHolderThatIsStopped) {
  remote_file holder(path);
  holder.open("write");
  holder.stop();
  remote_file waiting(path);
  waiting.begin_open("read");
  EXPECT_TRUE(waiting.stays_silent());
  holder.resume();
  holder.close();
  EXPECT_TRUE(waiting.hears("locked"));
}

TEST_F(FileLocks, EndWithAStoppedHolderThatIsKilled) {
  remote_file holder(path);
  holder.open("write");
  holder.stop();
  remote_file waiting(path);
  waiting.begin_open("read");
  EXPECT_TRUE(waiting.stays_silent());
  holder.kill();
  EXPECT_TRUE(waiting.hears("locked"));
}
#endif

#if !defined(_WIN32)
// On Windows a child process inherits a handle only if the open requests it.

TEST_F(FileLocks, AreNotHandedToAProcessThatIsStartedMeanwhile) {
  vu_file writer(path);
  writer.open(vu_file::o_write);
  child_process started_meanwhile("say_open_files", {native(folder.path()).native()});
  EXPECT_TRUE(started_meanwhile.hears("end")) << "an open file would keep the lock alive";
  EXPECT_EQ(started_meanwhile.wait(), 0);
}
#endif

TEST_F(FileLocks, ConflictBetweenTwoHandlesOfOneThread) {
  vu_file reader(path);
  reader.open(vu_file::o_read);
  vu_file writer(path);
  bool refused = false;
  // open() would wait for ever here.
  ASSERT_TRUE(writer.try_open(vu_file::o_truncate, refused, true));
  EXPECT_TRUE(refused);
  EXPECT_EQ(read_file(path), "first text");
}

TEST_F(FileLocks, StayWhenAnotherHandleOfTheProcessIsClosed) {
  vu_file writer(path);
  writer.open(vu_file::o_write);
  {
    vu_file passing_by(path);
    bool refused = false;
    ASSERT_TRUE(passing_by.try_open(vu_file::o_read, refused, true));
    EXPECT_TRUE(refused);
  }
  remote_file other(path);
  EXPECT_EQ(other.try_open("read"), "open, refused");
}

// Copies of an open handle are shallow: the first one to be destroyed closes the file for all.

namespace {

constexpr char kRawHandle[] =
    "on Windows a copy keeps the system's own handle value, which the next file may get";

class HandleCopies : public testing::Test {
 protected:
  void SetUp() override {
    write_file(first, "first text");
    write_file(second, "second text");
    // On the first exception of a process its runtime opens files. They could get the numbers of
    // handles that are closed below, so the first exception is thrown here.
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
    next.open(vu_file::o_append);  // reuses the descriptor that was just closed
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
  // Enough rounds for the numbers of closed handles to be reused.
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
