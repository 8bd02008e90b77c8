// The lock on the whole file that an open handle holds: between handles of one process and between
// processes.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/file_spellings.h"
#include "tests/support/process.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"

namespace {

using base = vu_file_base;

base::type_access mode_of(const std::string& number) {
  return static_cast<base::type_access>(std::stoul(number));
}

/// Holds a file open in a mode until the parent says something.
int hold_a_file(const std::vector<std::string>& args) {
  vu_file file(args.at(0));
  bool lock_failed = true;
  const bool opened = file.try_open(mode_of(args.at(1)), lock_failed, true);
  say(opened && !lock_failed ? "holding" : "not holding");
  hear();
  return 0;
}
REGISTER_ROLE(hold_a_file, hold_a_file)

/// Opens a file, however long that takes, and says so.
template <class Spelling>
int open_a_file(const std::vector<std::string>& args) {
  say("opening");
  typename Spelling::file file(Spelling::to_text(args.at(0)));
  file.open(mode_of(args.at(1)));
  say(file.is_locked() ? "locked" : "not locked");
  return 0;
}
REGISTER_ROLE(open_a_file_vu_file, open_a_file<narrow_spelling>)
REGISTER_ROLE(open_a_file_vu_fileutf8, open_a_file<utf8_spelling>)

template <class Spelling>
class VuFileLock : public testing::Test {
 protected:
  using file_type = typename Spelling::file;

  VuFileLock() { write_file(path(), "text"); }

  std::string path() const { return m_dir.path("f"); }
  file_type handle() const { return file_type(Spelling::to_text(path())); }

  scratch_folder m_dir;
};
TYPED_TEST_SUITE(VuFileLock, file_spellings, spelling_names);

}  // namespace

TYPED_TEST(VuFileLock, IsSharedByReadersAndExclusiveOtherwise) {
  for (const auto held : kAllModes) {
    auto holder = this->handle();
    holder.open(held);
    ASSERT_TRUE(holder.is_locked());
    for (const auto asked : kAllModes) {
      auto other = this->handle();
      bool lock_failed = false;
      EXPECT_TRUE(other.try_open(asked, lock_failed, true)) << "opened all the same";
      const bool compatible = held == base::o_read && asked == base::o_read;
      EXPECT_EQ(lock_failed, !compatible) << held << " " << asked;
      EXPECT_EQ(other.is_locked(), compatible);
      EXPECT_TRUE(other.is_open());
    }
    EXPECT_TRUE(holder.is_locked()) << "the others went, its own lock stayed";
  }
}

TYPED_TEST(VuFileLock, IsNotLostWhenAnotherHandleOfTheProcessCloses) {
  auto holder = this->handle();
  holder.open(base::o_write);
  {
    auto passing = this->handle();
    bool lock_failed = false;
    passing.try_open(base::o_read, lock_failed, true);
    EXPECT_TRUE(lock_failed);
  }
  auto other = this->handle();
  bool lock_failed = false;
  EXPECT_TRUE(other.try_open(base::o_read, lock_failed, true));
  EXPECT_TRUE(lock_failed);
}

TYPED_TEST(VuFileLock, ThatIsRefusedIsNeitherTracedNorThrown) {
  auto holder = this->handle();
  holder.open(base::o_write);
  auto other = this->handle();
  recording_sink sink;
  bool lock_failed = false;
  EXPECT_TRUE(other.try_open(base::o_append, lock_failed, true));
  EXPECT_TRUE(lock_failed);
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
  other.close();
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U) << "nothing was locked, nothing is unlocked";
}

TYPED_TEST(VuFileLock, ThatIsRefusedKeepsTruncateFromEmptyingTheFile) {
  auto holder = this->handle();
  holder.open(base::o_read);
  auto other = this->handle();
  bool lock_failed = false;
  EXPECT_TRUE(other.try_open(base::o_truncate, lock_failed, true));
  EXPECT_TRUE(lock_failed);
  other.close();
  holder.close();
  EXPECT_EQ(read_file(this->path()), "text");
}

TYPED_TEST(VuFileLock, OfASecondProcessIsRefusedAtOnceWhenAskedNotToWait) {
  child_process holder("hold_a_file", {this->path(), std::to_string(base::o_write)});
  ASSERT_TRUE(holder.hears("holding"));
  auto other = this->handle();
  bool lock_failed = false;
  EXPECT_TRUE(other.try_open(base::o_read, lock_failed, true));
  EXPECT_TRUE(lock_failed);
  EXPECT_FALSE(other.is_locked());
}

TYPED_TEST(VuFileLock, OfASecondProcessIsWaitedForWithoutLimit) {
  const std::string role = std::string("open_a_file_") + TypeParam::kClass;
  for (const auto mode : kAllModes) {
    auto holder = this->handle();
    holder.open(base::o_write);
    child_process waiting(role, {this->path(), std::to_string(mode)});
    ASSERT_TRUE(waiting.hears("opening"));
    EXPECT_TRUE(waiting.stays_silent()) << mode;
    holder.close();
    EXPECT_TRUE(waiting.hears("locked")) << mode;
    EXPECT_EQ(waiting.wait(), 0);
  }
}

TYPED_TEST(VuFileLock, EndsWithTheProcessThatHoldsIt) {
  child_process holder("hold_a_file", {this->path(), std::to_string(base::o_append)});
  ASSERT_TRUE(holder.hears("holding"));
  holder.kill();
  ASSERT_EQ(holder.wait(), child_process::kKilled);
  auto other = this->handle();
  other.open(base::o_write);
  EXPECT_TRUE(other.is_locked());
}
