// Which system calls the two file handles make, how many and in which order. They are the cost of
// an operation.

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/os/os.h"
#include "tests/support/file_spellings.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"

namespace {

namespace faults = os::faults;
using base = vu_file_base;
using faults::Call;
using list = std::vector<std::string>;

/// Records the calls of the seam during its lifetime.
class call_log {
 public:
  call_log() {
    for (auto call = Call::open; call != Call::any;
         call = static_cast<Call>(static_cast<int>(call) + 1)) {
      const auto note = [this, call] { m_calls.emplace_back(faults::name(call)); };
      m_hooks.emplace_back(
          new faults::Fault(faults::before(call, note, 1, faults::Times::kLasting)));
    }
  }
  list take() { return std::exchange(m_calls, {}); }

 private:
  std::vector<std::unique_ptr<faults::Fault>> m_hooks;
  list m_calls;
};

template <class Spelling>
class VuFileCalls : public testing::Test {
 protected:
  using file_type = typename Spelling::file;

  VuFileCalls() { write_file(m_dir.path("f"), "0123456789"); }

  file_type handle() const { return file_type(Spelling::to_text(m_dir.path("f"))); }

  scratch_folder m_dir;
};
TYPED_TEST_SUITE(VuFileCalls, file_spellings, spelling_names);

}  // namespace

TYPED_TEST(VuFileCalls, OfAReadWithACountAreFive) {
  auto file = this->handle();
  call_log log;
  file.open(base::o_read);
  EXPECT_EQ(log.take(), (list{"open", "lock"}));
  std::string text;
  file.read(text, 4);
  EXPECT_EQ(log.take(), list{"read"});
  file.close();
  EXPECT_EQ(log.take(), (list{"unlock", "close"}));
}

TYPED_TEST(VuFileCalls, OfAReadOfTheWholeFileAskForTheSizeOnce) {
  auto file = this->handle();
  file.open(base::o_read);
  call_log log;
  std::string text;
  file.read(text, 0);
  EXPECT_EQ(log.take(), (list{"stat", "read"}));
}

TYPED_TEST(VuFileCalls, OfAWriteFlushBeforeTheyUnlock) {
  auto file = this->handle();
  call_log log;
  file.open(base::o_write);
  EXPECT_EQ(log.take(), (list{"open", "lock"}));
  file.write("ab");
  EXPECT_EQ(log.take(), list{"write"});
  file.close();
  EXPECT_EQ(log.take(), (list{"flush", "unlock", "close"}));
}

TYPED_TEST(VuFileCalls, OfAppendingMoveToTheEndBeforeEachWrite) {
  auto file = this->handle();
  call_log log;
  file.open(base::o_append);
  EXPECT_EQ(log.take(), (list{"open", "lock"}));
  file.write("ab");
  file.write("cd", 2);
  EXPECT_EQ(log.take(), (list{"seek", "write", "seek", "write"}));
  file.write(std::string());
  EXPECT_EQ(log.take(), list{}) << "no data, no call";
  file.close();
  EXPECT_EQ(log.take(), (list{"flush", "unlock", "close"}));
}

TYPED_TEST(VuFileCalls, OfTruncatingEmptyTheFileBehindTheLock) {
  auto file = this->handle();
  call_log log;
  file.open(base::o_truncate);
  EXPECT_EQ(log.take(), (list{"open", "lock", "seek", "set_end"}));
}

TYPED_TEST(VuFileCalls, OfReopeningCloseFirst) {
  auto file = this->handle();
  file.open(base::o_write);
  call_log log;
  file.open(base::o_read);
  EXPECT_EQ(log.take(), (list{"flush", "unlock", "close", "open", "lock"}));
}

TYPED_TEST(VuFileCalls, OfTheWrongModeAreNone) {
  auto file = this->handle();
  file.open(base::o_truncate);
  call_log log;
  std::string text;
  EXPECT_NE(thrown_text([&] { file.read(text, 0); }), "(nothing thrown)");
  file.close();
  file.open(base::o_read);
  log.take();
  EXPECT_NE(thrown_text([&] { file.write("x"); }), "(nothing thrown)");
  file.clear();
  EXPECT_EQ(log.take(), list{});
}

TYPED_TEST(VuFileCalls, OfAClosedHandleAreNone) {
  auto file = this->handle();
  call_log log;
  file.close();
  EXPECT_EQ(log.take(), list{});
}

TYPED_TEST(VuFileCalls, OfAnUnlockedHandleDoNotUnlock) {
  auto file = this->handle();
  {
    const auto fault = faults::fail(Call::lock, {1, os::Failure::kLocked});
    file.open(base::o_write);
  }
  call_log log;
  file.close();
  EXPECT_EQ(log.take(), (list{"flush", "close"}));
}

TYPED_TEST(VuFileCalls, OfLinesNotEmptyAreThoseOfOneRead) {
  call_log log;
  std::vector<typename TypeParam::text> lines;
  TypeParam::file::linesNotEmpty(TypeParam::to_text(this->m_dir.path()), TypeParam::to_text("f"),
                                 lines);
  EXPECT_EQ(log.take(), (list{"open", "lock", "stat", "read", "unlock", "close"}));
}

TEST(VuFileUtf8Calls, OfABufferReadAreTheSame) {
  const scratch_folder dir;
  write_file(dir.path("f"), "0123456789");
  vu_fileutf8 file(vu_utf8string(dir.path("f")));
  file.open(base::o_read);
  call_log log;
  unsigned char* buffer = nullptr;
  unsigned int length = 0;
  file.read(buffer, length);
  const std::unique_ptr<unsigned char[]> owner(buffer);
  EXPECT_EQ(log.take(), (list{"stat", "read"}));
}

namespace {

/// Gives access to the protected members of vu_file_base.
struct heir : vu_file {
  using vu_file::vu_file;
  using vu_file_base::flush;
  using vu_file_base::lock_internal;
  using vu_file_base::running_under_winnt;
  using vu_file_base::unlock_internal;

  std::uint32_t access_value() const { return access; }
  std::int32_t handle_value() const { return handle; }
};

vu_file_base::lock_desc_t lock_request(std::uint32_t flags) {
  vu_file_base::lock_desc_t request{};
  request.flags = flags;
  request.lengthLow = 0xFFFFFFFFU;
  request.lengthHigh = 0xFFFFFFFFU;
  return request;
}

FILE_HANDLE_TESTS(VuFileInnerScope);

TYPED_TEST(VuFileInnerScope, IsOpenedByTheFormsThatCallAnotherOne) {
  write_file(this->m_dir.path("f"), "abc");
  typename TestFixture::file_type file;
  recording_sink sink;
  const auto scopes_of = [&](auto operation) {
    sink.clear();
    operation();
    return sink.scopes().size();
  };
  const auto named = [&](const std::string& text) { return TypeParam::to_text(text); };
  EXPECT_EQ(
      scopes_of([&] { file.open(named(this->m_dir.path()), named("f"), vu_file_base::o_append); }),
      2U);
  char bytes[3] = {};
  EXPECT_EQ(scopes_of([&] { file.read(bytes, 3); }), 2U);
  EXPECT_EQ(scopes_of([&] { file.write(bytes, 3); }), 2U);
}

}  // namespace

TEST(VuFileBase, OfANewHandleIsClosedUnlockedAndNeverOpened) {
  const heir file;
  EXPECT_EQ(file.access_value(), 0xFFFFFFFFU);
  EXPECT_EQ(file.handle_value(), -1);
  EXPECT_FALSE(file.is_locked());
}

TEST(VuFileBase, KeepsTheModeOfTheLastOpen) {
  const scratch_folder dir;
  heir file(dir.path(), "missing");
  EXPECT_NE(thrown_text([&] { file.open(base::o_read); }), "(nothing thrown)");
  EXPECT_EQ(file.access_value(), base::o_read);
  EXPECT_EQ(file.handle_value(), -1);
  bool lock_failed = false;
  EXPECT_FALSE(file.try_open(static_cast<base::type_access>(77), lock_failed, true));
  EXPECT_EQ(file.access_value(), 77U);
  file.open(base::o_write);
  file.close();
  EXPECT_EQ(file.access_value(), base::o_write);
  EXPECT_EQ(file.handle_value(), -1);
}

TEST(VuFileBase, LocksAndUnlocksByARecord) {
  const scratch_folder dir;
  heir file(dir.path(), "f");
  file.open(base::o_write);
  EXPECT_TRUE(file.unlock_internal(nullptr, 0));
  EXPECT_FALSE(file.is_locked());
  EXPECT_TRUE(file.lock_internal(lock_request(3), 0, nullptr));
  EXPECT_TRUE(file.is_locked());
  {
    vu_file other(dir.path(), "f");
    bool lock_failed = false;
    EXPECT_TRUE(other.try_open(base::o_read, lock_failed, true));
    EXPECT_TRUE(lock_failed);
  }
  const auto fault = faults::fail(Call::unlock, {1, os::Failure::kOther});
  EXPECT_FALSE(file.unlock_internal(nullptr, 0));
  EXPECT_TRUE(file.is_locked());
}

TEST(VuFileBase, KeepsTheOutcomeOfALockRequest) {
  const scratch_folder dir;
  heir file(dir.path(), "f");
  file.open(base::o_write);
  file.unlock_internal(nullptr, 0);
  const auto fault = faults::fail(Call::lock, {1, os::Failure::kOther});
  EXPECT_FALSE(file.lock_internal(lock_request(2), 0, nullptr));
  EXPECT_FALSE(file.is_locked());
}

TEST(VuFileBase, SaysWhetherTheFlushSucceeded) {
  const scratch_folder dir;
  heir file(dir.path(), "f");
  file.open(base::o_write);
  EXPECT_TRUE(file.flush());
  const auto fault = faults::fail(Call::flush, {1, os::Failure::kOther});
  EXPECT_FALSE(file.flush());
}

TEST(VuFileBase, KnowsWhetherTheSystemIsOfTheNtFamily) {
  EXPECT_TRUE(heir::running_under_winnt());
  const auto other = faults::set_nt_family(false);
  EXPECT_FALSE(heir::running_under_winnt());
}
