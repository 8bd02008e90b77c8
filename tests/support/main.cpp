#include <gtest/gtest.h>

#include <cstdio>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#if !defined(_WIN32)
#include <csignal>
#endif

#include "tests/support/process.h"

// The main function of every test program: runs the tests, each under an alarm, or the role of a
// helper process.

namespace {

class AlarmPerTest : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo& test) override {
    m_alarm = std::make_unique<test_alarm>(std::string(test.test_suite_name()) + "." + test.name(),
                                           test_alarm::default_limit());
  }
  void OnTestEnd(const testing::TestInfo&) override { m_alarm.reset(); }

  std::unique_ptr<test_alarm> m_alarm;
};

/// Output must not be lost when the process dies. The Windows runtime treats line buffering as full
/// buffering.
void say_everything_at_once() {
#if defined(_WIN32)
  std::setvbuf(stdout, nullptr, _IONBF, 0);
#else
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
#endif
}

}  // namespace

int main(int argc, char** argv) {
  say_everything_at_once();
#if !defined(_WIN32)
  // Without SIGPIPE a write() to a dead helper process returns an error, and the tests continue.
  std::signal(SIGPIPE, SIG_IGN);
#endif
  if (const std::optional<int> result = run_role(argc, argv)) return *result;

  testing::InitGoogleTest(&argc, argv);
  if (argc > 1) {
    std::cerr << "unknown argument: " << argv[1] << std::endl;
    return 1;
  }
  testing::UnitTest& tests = *testing::UnitTest::GetInstance();
  tests.listeners().Append(new AlarmPerTest);
  const int result = RUN_ALL_TESTS();
  if (GTEST_FLAG_GET(list_tests)) return result;
  if (tests.successful_test_count() + tests.failed_test_count() == 0) {
    std::cerr << "no test ran" << std::endl;
    return 1;
  }
  return result;
}
