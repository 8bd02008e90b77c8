#if defined(__linux__)

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "platform/os/os.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "tests/unit/os_linux_kit.h"
#include "tests/unit/os_test_kit.h"
#include "vu_file.h"
#include "vu_fileutf8.h"

// One tree, two accounts: what one of them made and lets the other write, the other changes. Needs
// the superuser, who can be both.

namespace {

namespace fs = std::filesystem;
using os::CopiedTime;
using os::Failure;
using os::IfExists;
using vu_host::trace_event;
using list = std::vector<std::string>;

constexpr ::uid_t kOther = 65534;
constexpr std::int64_t kOld = 1'000'000'000;

/// Acts as another account, without the superuser's powers over files, as long as it lives.
class AsOther {
 public:
  AsOther() { EXPECT_EQ(::seteuid(kOther), 0); }
  ~AsOther() { EXPECT_EQ(::seteuid(0), 0); }
  AsOther(const AsOther&) = delete;
  AsOther& operator=(const AsOther&) = delete;
};

class OsLinuxAccounts : public testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "only the superuser can be two accounts";
    ASSERT_EQ(::chmod(native(m_scratch.path()).c_str(), 0777), 0);
    write_file(m_from, "new");
    set_modify_time(m_from, kOld);
    write_file(m_to, "the old content");
    ASSERT_EQ(::chmod(native(m_to).c_str(), 0666), 0);
  }
  void check_copied() const {
    EXPECT_EQ(read_file(m_to), "new");
    EXPECT_GT(get_modify_time(m_to), kOld);
  }

  const scratch_folder m_scratch;
  const std::string m_from = m_scratch.path("from");
  const std::string m_to = m_scratch.path("to");
};

TEST_F(OsLinuxAccounts, ACopyOntoAnothersFileStaysAndSaysThatItsTimeIsNotTheSources) {
  CopiedTime time = CopiedTime::kKept;
  {
    const AsOther other;
    EXPECT_TRUE(succeeds(os::copy(m_from, m_to, IfExists::kReplace, &time)));
    EXPECT_TRUE(succeeds(os::copy(m_from, m_to, IfExists::kReplace)));
  }
  EXPECT_EQ(time, CopiedTime::kRefused);
  check_copied();
}

TEST_F(OsLinuxAccounts, ACopyOntoAFileOfOnesOwnKeepsTheTime) {
  CopiedTime time = CopiedTime::kRefused;
  EXPECT_TRUE(succeeds(os::copy(m_from, m_to, IfExists::kReplace, &time)));
  EXPECT_EQ(time, CopiedTime::kKept);
  EXPECT_EQ(get_modify_time(m_to), kOld);
}

TEST_F(OsLinuxAccounts, WhatAnotherMayNotWriteIsNotCut) {
  ASSERT_EQ(::chmod(native(m_to).c_str(), 0644), 0);
  {
    const AsOther other;
    EXPECT_TRUE(fails(os::copy(m_from, m_to, IfExists::kReplace), Failure::kOther, {EACCES, 5}));
  }
  EXPECT_EQ(read_file(m_to), "the old content");
}

TEST_F(OsLinuxAccounts, AReadOnlySourceIsRefusedBeforeTheCut) {
  ASSERT_EQ(::chmod(native(m_from).c_str(), 0444), 0);
  {
    const AsOther other;
    EXPECT_TRUE(fails(os::copy(m_from, m_to, IfExists::kReplace), Failure::kOther, {EPERM, 5}));
  }
  EXPECT_EQ(read_file(m_to), "the old content");
}

TEST_F(OsLinuxAccounts, AFileThatItsOwnerMayWriteIsWritableForWhoeverAsks) {
  {
    const AsOther other;
    EXPECT_TRUE(succeeds(os::make_writable(m_to)));
    EXPECT_TRUE(vu_file::chmodW(m_to));
    EXPECT_TRUE(vu_fileutf8::chmodW(vu_utf8string(m_to)));
  }
  ASSERT_EQ(::chmod(native(m_to).c_str(), 0466), 0);
  const AsOther other;
  EXPECT_TRUE(fails(os::make_writable(m_to), Failure::kOther, {EPERM, 5}));
}

TEST_F(OsLinuxAccounts, BothFormsOfACopyWarnOfTheTime) {
  recording_sink sink;
  {
    const AsOther other;
    EXPECT_TRUE(vu_file::copyFile(m_from, m_to, true));
    EXPECT_TRUE(vu_fileutf8::copyFile(vu_utf8string(m_from), vu_utf8string(m_to), true));
  }
  check_copied();
  EXPECT_EQ(sink.events(trace_event::warning),
            (list{"vu_file::copyFile : cannot set the time of " + m_to,
                  "vu_fileutf8::copyFile : cannot set the time of " + m_to}));
}

}  // namespace

#endif
