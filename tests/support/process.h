#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

/// @file
/// Helper processes of the test program's own binary, and the alarm against tests that hang.
///
/// A role is a function that a helper process runs in place of the tests:
///
///     int hold_for_reading(const std::vector<std::string>& args) {
///       vu_file file(args.at(0));
///       file.open(vu_file::o_read);
///       say("ready");
///       hear();               // until the parent writes a line, or is gone
///       return 0;
///     }
///     REGISTER_ROLE(hold_for_reading, hold_for_reading)
///
///     child_process child("hold_for_reading", {path});
///     ASSERT_TRUE(child.hears("ready"));
///     ...
///     child.tell("go");
///     EXPECT_EQ(child.wait(), 0);

// ---- the alarm ---------------------------------------------------------------------------------

/// Ends the process with a message when it lives longer than it may. It measures nothing: it only
/// keeps a test that waits for ever from stopping everything.
class test_alarm {
 public:
  /// @param what named in the message. @param limit zero for none.
  test_alarm(std::string what, std::chrono::seconds limit);
  ~test_alarm();
  test_alarm(const test_alarm&) = delete;
  test_alarm& operator=(const test_alarm&) = delete;

  /// The exit code of a process that its alarm has ended.
  static constexpr int kExitCode = 86;
  /// For one test or one role: the seconds in the environment variable VU_TEST_ALARM (0 for none),
  /// else 50, and 180 for a Windows program, which may have to run under an emulator.
  static std::chrono::seconds default_limit();

 private:
  std::mutex m_mutex;
  std::condition_variable m_over;
  bool m_done = false;
  std::thread m_thread;
};

/// Whether a handle without a lock of its own is kept from what another handle holds locked. The
/// library sees to that itself on Linux, and Windows does; Wine grants and refuses locks like
/// Windows, but lets reads and writes pass.
bool locks_are_enforced();

// ---- the helper's side -------------------------------------------------------------------------

using role_function = int (*)(const std::vector<std::string>& args);

/// Makes a role known; see REGISTER_ROLE. @return true.
bool register_role(const char* name, role_function function);
/// Runs the role that the program's arguments name ("--role=NAME" as the first one), under an
/// alarm.
/// @return its exit code, or nothing when the arguments name none.
std::optional<int> run_role(int argc, char** argv);

/// Registers a function as a role; at namespace scope, followed by nothing.
#define REGISTER_ROLE(name, function) \
  [[maybe_unused]] static const bool role_##name##_is_registered = register_role(#name, function);

/// In a role: writes one line to the parent, at once.
void say(const std::string& line);
/// In a role: waits for one line from the parent. Nothing when the parent is gone or has closed its
/// side.
std::optional<std::string> hear();

// ---- the parent's side -------------------------------------------------------------------------

/// A helper process. The object kills what still runs when it goes.
class child_process {
 public:
  /// The time limit of waiting; generous, since nothing is measured with it.
  static constexpr std::chrono::milliseconds kPatience{40'000};
  /// What wait() gives for a process that kill() has ended.
  static constexpr int kKilled = 137;

  /// Starts the own binary in a role; throws std::runtime_error when the system cannot.
  /// @param args ASCII. @param environment variables to set or replace, to remove with an empty
  /// value.
  explicit child_process(const std::string& role, const std::vector<std::string>& args = {},
                         const std::map<std::string, std::string>& environment = {});
  ~child_process();
  child_process(const child_process&) = delete;
  child_process& operator=(const child_process&) = delete;
  child_process(child_process&&) noexcept;
  child_process& operator=(child_process&&) = delete;

  /// Writes one line. @return false when nobody reads it any more.
  bool tell(const std::string& line);
  /// Ends the lines: the helper's hear() gives nothing from here on.
  void close_input();
  /// Waits for the next line that the helper says. @return nothing when time is over or no line
  /// comes any more.
  std::optional<std::string> next_line(std::chrono::milliseconds limit = kPatience);
  /// Whether the next line is this one; another one, or none, is shown as a test failure.
  bool hears(const std::string& line, std::chrono::milliseconds limit = kPatience);
  /// Whether no line comes for a while (of a helper that has to be waiting for something).
  bool stays_silent(std::chrono::milliseconds time = std::chrono::milliseconds(150));

  /// Waits for the end. @return the exit code (128 + the signal's number after a signal), or
  /// nothing when time is over.
  std::optional<int> wait(std::chrono::milliseconds limit = kPatience);
  /// Ends the helper as a crash would, without a chance to clean up. wait() still gives its end.
  void kill();

#if !defined(_WIN32)
  /// Stops the helper where it is, and returns when it stands still.
  void stop();
  /// Lets a stopped helper go on.
  void resume();
#endif

 private:
  struct system_part;
  std::unique_ptr<system_part> m_system;
  std::string m_pending;
};
