#include "tests/support/os_faults.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/os/os.h"
#include "tests/support/scratch.h"
#include "tests/unit/os_test_kit.h"

// The layer through which tests make the system fail. A fault that does not strike would make every
// test that plans one worthless.

namespace {

namespace faults = os::faults;
using faults::Call;
using faults::Times;
using os::Failure;

const os::Status kPlanned(4711, Failure::kOther);

class OsFaults : public testing::Test {
 protected:
  OsFaults() { write_file(m_path, "0123456789"); }

  bool is_found() const { return os::probe_search(m_path).ok(); }

  const scratch_folder m_scratch;
  const std::string m_path = m_scratch.path("file");
};

TEST_F(OsFaults, OneCallFailsAndTheNextIsMade) {
  const auto fault = faults::fail(Call::probe_search, kPlanned);
  EXPECT_TRUE(fails(os::probe_search(m_path), Failure::kOther, {4711, 4711}));
  EXPECT_TRUE(is_found());
  EXPECT_EQ(fault.hits(), 1U);
}

TEST_F(OsFaults, CountingStartsWithTheRule) {
  EXPECT_TRUE(is_found());
  const auto fault = faults::fail(Call::probe_search, kPlanned, 3);
  EXPECT_TRUE(is_found());
  EXPECT_TRUE(is_found());
  EXPECT_FALSE(is_found());
  EXPECT_TRUE(is_found());
}

TEST_F(OsFaults, ALastingFaultEndsWithItsScope) {
  {
    const auto fault = faults::fail(Call::probe_search, kPlanned, 2, Times::kLasting);
    EXPECT_TRUE(is_found());
    EXPECT_FALSE(is_found());
    EXPECT_FALSE(is_found());
    EXPECT_EQ(fault.hits(), 2U);
  }
  EXPECT_TRUE(is_found());
}

TEST_F(OsFaults, OtherFunctionsAreNotConcerned) {
  const auto fault = faults::fail(Call::probe_search, kPlanned, 1, Times::kLasting);
  os::FileStat data;
  EXPECT_TRUE(succeeds(os::stat(m_path, data)));
  EXPECT_EQ(fault.hits(), 0U);
}

TEST_F(OsFaults, AFailedCallDoesNothing) {
  const auto remove = faults::fail(Call::remove_file, kPlanned);
  EXPECT_FALSE(os::remove_file(m_path).ok());
  EXPECT_TRUE(file_exists(m_path));
  const auto open = faults::fail(Call::open, kPlanned);
  os::Handle handle = 77;
  EXPECT_FALSE(os::open(m_path, os::Access::kReadExisting, handle).ok());
  EXPECT_EQ(handle, os::kNoHandle);
}

TEST_F(OsFaults, TheLastErrorAgreesUntilTheNextCall) {
  const auto fault = faults::fail(Call::probe_search, kPlanned);
  EXPECT_FALSE(is_found());
  EXPECT_EQ(os::last_error(), 4711);
  EXPECT_EQ(os::last_error(), 4711);
  os::FileStat data;
  EXPECT_FALSE(os::stat(m_scratch.path("missing"), data).ok());
  EXPECT_NE(os::last_error(), 4711);
}

TEST_F(OsFaults, ACallThrowsWhatIsPlanned) {
  const auto fault = faults::throw_from(Call::flush, std::runtime_error("planned"), 2);
  OpenFile file(m_path, os::Access::kReadWriteCreate);
  EXPECT_TRUE(succeeds(os::flush(file.get())));
  try {
    (void)os::flush(file.get());
    FAIL() << "nothing was thrown";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "planned");
  }
  EXPECT_TRUE(succeeds(os::flush(file.get())));
}

TEST_F(OsFaults, ATransferIsCutShortAndReportsWhatIsPlanned) {
  OpenFile file(m_path, os::Access::kReadWriteCreate);
  {
    const auto fault = faults::cut_transfer(Call::read, 4);
    EXPECT_EQ(file.read(10), "0123");
    EXPECT_EQ(file.read(3), "456");
  }
  const auto fault = faults::cut_transfer(Call::write, 2, kPlanned);
  std::size_t done = 0;
  EXPECT_TRUE(fails(os::write(file.get(), "abc", 3, done), Failure::kOther, {4711, 4711}));
  EXPECT_EQ(done, 2U);
  EXPECT_EQ(os::last_error(), 4711);
  EXPECT_EQ(read_file(m_path), "0123456ab9");
  const auto whole = faults::fail(Call::write, kPlanned);
  done = 77;
  EXPECT_FALSE(os::write(file.get(), "abc", 3, done).ok());
  EXPECT_EQ(done, 0U);
  EXPECT_EQ(read_file(m_path), "0123456ab9");
}

TEST_F(OsFaults, HooksRunAroundTheCallAndMayUseTheSeam) {
  std::vector<std::string> order;
  const auto before = faults::before(
      Call::remove_file, [&] { order.push_back(is_found() ? "before: there" : "before: gone"); });
  const auto after = faults::after(
      Call::remove_file, [&] { order.push_back(is_found() ? "after: there" : "after: gone"); });
  EXPECT_TRUE(succeeds(os::remove_file(m_path)));
  EXPECT_EQ(order, (std::vector<std::string>{"before: there", "after: gone"}));
}

TEST_F(OsFaults, AHookAndAFaultMeetInOneCall) {
  bool ran = false;
  const auto hook = faults::before(Call::remove_file, [&] { ran = true; });
  const auto fault = faults::fail(Call::remove_file, kPlanned);
  EXPECT_FALSE(os::remove_file(m_path).ok());
  EXPECT_TRUE(ran);
  EXPECT_TRUE(file_exists(m_path));
}

TEST_F(OsFaults, OfTwoFaultsTheOlderDecides) {
  const auto older = faults::fail(Call::probe_search, {1, Failure::kNotFound});
  const auto newer = faults::fail(Call::probe_search, {2, Failure::kOther}, 1, Times::kLasting);
  EXPECT_EQ(os::probe_search(m_path).code(), 1);
  EXPECT_EQ(os::probe_search(m_path).code(), 2);
}

TEST_F(OsFaults, AnyFunctionCanBeMeant) {
  const auto fault = faults::fail(Call::any, kPlanned, 3);
  EXPECT_TRUE(is_found());
  os::FileStat data;
  EXPECT_TRUE(succeeds(os::stat(m_path, data)));
  EXPECT_FALSE(os::remove_file(m_path).ok());
  EXPECT_TRUE(succeeds(os::remove_file(m_path)));
}

TEST_F(OsFaults, TheClockTheLeadBytesAndTheFamilyAreSet) {
  {
    const auto clock = faults::set_now(1'199'145'600);
    const auto bytes = faults::set_lead_bytes("\x81\xE0");
    const auto family = faults::set_nt_family(false);
    EXPECT_EQ(os::now(), 1'199'145'600);
    EXPECT_TRUE(os::is_lead_byte(0x81));
    EXPECT_TRUE(os::is_lead_byte(0xE0));
    EXPECT_FALSE(os::is_lead_byte('a'));
    EXPECT_FALSE(os::nt_family());
  }
  EXPECT_GT(os::now(), 1'199'145'600);
  EXPECT_TRUE(os::nt_family());
}

TEST_F(OsFaults, FunctionsWithoutAStatusAnswerPoorly) {
  const auto narrow_text = faults::fail(Call::to_narrow, kPlanned);
  const auto text = faults::fail(Call::error_text, kPlanned);
  const auto wide_text = faults::fail(Call::error_text_wide, kPlanned);
  const auto code = faults::fail(Call::last_error, kPlanned);
  EXPECT_EQ(os::to_narrow(ucs2string(u"a")), "");
  EXPECT_EQ(os::error_text(0), "");
  EXPECT_TRUE(os::error_text_wide(0).empty());
  EXPECT_EQ(os::last_error(), 4711);
}

TEST_F(OsFaults, CallsAreCounted) {
  faults::reset();
  EXPECT_EQ(faults::calls(Call::any), 0U);
  is_found();
  is_found();
  const auto fault = faults::fail(Call::stat, kPlanned);
  os::FileStat data;
  EXPECT_FALSE(os::stat(m_path, data).ok());
  EXPECT_EQ(faults::calls(Call::probe_search), 2U);
  EXPECT_EQ(faults::calls(Call::stat), 1U);
  EXPECT_EQ(faults::calls(Call::any), 3U);
  faults::reset();
  EXPECT_EQ(faults::calls(Call::any), 0U);
  EXPECT_STREQ(faults::name(Call::probe_search), "probe_search");
  EXPECT_STREQ(faults::name(Call::open), "open");
  EXPECT_STREQ(faults::name(Call::nt_family), "nt_family");
  EXPECT_STREQ(faults::name(Call::any), "any");
}

TEST_F(OsFaults, AnotherThreadIsHeldByAHook) {
  std::mutex gate;
  gate.lock();
  bool gone_on = false;
  const auto hook = faults::before(Call::remove_file, [&] { const std::scoped_lock wait(gate); });
  std::thread thread([&] {
    EXPECT_TRUE(succeeds(os::remove_file(m_path)));
    gone_on = true;
  });
  while (hook.hits() == 0) std::this_thread::yield();
  EXPECT_TRUE(is_found());
  gate.unlock();
  thread.join();
  EXPECT_TRUE(gone_on);
  EXPECT_FALSE(is_found());
}

}  // namespace
