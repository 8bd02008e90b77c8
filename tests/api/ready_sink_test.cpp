// The sinks that vu_host.h brings along.
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "vu_host.h"

namespace {

constexpr vu_host::trace_site kSite = {"vu_file", 1, "signature"};

}  // namespace

TEST(ReadySink, TakesNothingUntilAMemberIsOverridden) {
  const vu_host::sink nothing;
  EXPECT_FALSE(nothing.wants(vu_host::trace_level::xs));
  EXPECT_FALSE(nothing.wants(vu_host::trace_event::error));
}

TEST(ReadySink, KeepsTheLastProblemOfEachThreadWithoutItsLineEnd) {
  vu_host::problem_sink problems(false);
  EXPECT_FALSE(problems.wants(vu_host::trace_level::xs));
  EXPECT_FALSE(problems.wants(vu_host::trace_event::success));
  EXPECT_TRUE(problems.wants(vu_host::trace_event::warning));
  EXPECT_TRUE(problems.wants(vu_host::trace_event::error));
  problems.event(kSite, vu_host::trace_event::warning, "first");
  problems.event(kSite, vu_host::trace_event::error, "disk full\r\n");
  EXPECT_EQ(vu_host::problem_sink::last(), "disk full");
  std::string elsewhere = "not asked";
  std::thread([&] { elsewhere = vu_host::problem_sink::last(); }).join();
  EXPECT_EQ(elsewhere, "");
  vu_host::problem_sink::clear();
  EXPECT_EQ(vu_host::problem_sink::last(), "");
}

TEST(ReadySink, WritesProblemsToTheErrorOutput) {
  vu_host::problem_sink problems;
  testing::internal::CaptureStderr();
  problems.event(kSite, vu_host::trace_event::warning, "one\n");
  problems.event(kSite, vu_host::trace_event::error, "two");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "warning: one\nerror: two\n");
}
