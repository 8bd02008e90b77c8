// Locks: between handles, between processes, and after the end of whoever held one.

#include <chrono>
#include <string>
#include <vector>

#include "lab/kit/kernel/kernel.h"
#include "tests/support/process.h"
#include "vu_file.h"

namespace {

using namespace std::chrono_literals;

/// Holds a file's lock until it is told to end, or is killed.
int hold_a_lock(const std::vector<std::string>& args) {
  vu_file file(args.at(0));
  file.open(vu_file::o_append);
  say(file.is_locked() ? "locked" : "not locked");
  hear();
  return 0;
}
REGISTER_ROLE(hold_a_lock, hold_a_lock)

/// Keeps emptying a file and putting two bytes into it that belong together, under its lock.
int write_pairs(const std::vector<std::string>& args) {
  say("begins");
  for (int i = 0; i < 150; ++i) {
    vu_file file(args.at(0));
    file.open(vu_file::o_truncate);
    const std::string letter(1, static_cast<char>('a' + i % 26));
    file.write(letter);
    ::Sleep(1);
    file.write(letter);
    file.close();
  }
  return 0;
}
REGISTER_ROLE(write_pairs, write_pairs)

}  // namespace

TEST_F(Kernel, ALockKeepsOtherHandlesFromReading) {
  settles(1, "a reader never sees a half-written file, also one that asks for no lock");
  NEEDS_A_REAL_KERNEL("a read of what another handle has locked fails with 33");
  write_file(path("file"), "0123456789");
  vu_file writer(path("file"));
  writer.open(vu_file::o_append);
  const RawFile reader(path("file"), GENERIC_READ, kAllShared);
  ASSERT_TRUE(reader.is_open());
  const DWORD code = reader.read_a_byte();
  found("the system says " + std::to_string(code));
  EXPECT_EQ(code, static_cast<DWORD>(ERROR_LOCK_VIOLATION));
  writer.close();
  EXPECT_EQ(reader.read_a_byte(), 0U);
}

TEST_F(Kernel, ALockKeepsOtherProcessesFromReading) {
  settles(2, "the same between two processes, and that readers who ask for a lock meet no half");
  write_file(path("locked"), "0123456789");
  child_process holder("hold_a_lock", {path("locked")});
  ASSERT_TRUE(holder.hears("locked"));
  vu_file file(path("locked"));
  bool is_refused = false;
  file.try_open(vu_file::o_read, is_refused, true);
  EXPECT_TRUE(is_refused);
  file.close();
  DWORD code = 0;
  {
    const RawFile reader(path("locked"), GENERIC_READ, kAllShared);
    ASSERT_TRUE(reader.is_open());
    code = reader.read_a_byte();
  }
  holder.tell("end");
  EXPECT_EQ(holder.wait(), 0);

  write_file(path("pair"), "zz");
  child_process writer("write_pairs", {path("pair")});
  ASSERT_TRUE(writer.hears("begins"));
  int reads = 0;
  for (; reads < 150; ++reads) {
    vu_file reader(path("pair"));
    reader.open(vu_file::o_read);
    std::string pair;
    reader.read(pair, 0);
    ASSERT_EQ(pair.size(), 2U);
    ASSERT_EQ(pair[0], pair[1]) << "after " << reads << " reads";
  }
  EXPECT_EQ(writer.wait(), 0);
  found("a read without a lock: " + std::to_string(code) + "; " + std::to_string(reads) +
        " reads beside a writer, none of a half");
  if (!is_emulated()) {
    EXPECT_EQ(code, static_cast<DWORD>(ERROR_LOCK_VIOLATION));
  }
}

TEST_F(Kernel, ALockEndsWithAProcessThatIsKilled) {
  settles(3, "how long others wait for the lock of a program that has crashed");
  write_file(path("file"), "x");
  child_process holder("hold_a_lock", {path("file")});
  ASSERT_TRUE(holder.hears("locked"));
  const auto begin = std::chrono::steady_clock::now();
  holder.kill();
  vu_file file(path("file"));
  file.open(vu_file::o_append);
  const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - begin;
  found(std::to_string(static_cast<int>(time.count())) + " ms after the kill");
  EXPECT_TRUE(file.is_locked());
  EXPECT_LT(time, 20s);
}
