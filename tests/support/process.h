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
///       hear();               // waits for a line from the parent, or for its end
///       return 0;
///     }
///     REGISTER_ROLE(hold_for_reading, hold_for_reading)
///
///     child_process child("hold_for_reading", {path});
///     ASSERT_TRUE(child.hears("ready"));
///     ...
///     child.tell("go");
///     EXPECT_EQ(child.wait(), 0);

/// Ends the process with a message if it lives longer than the limit. It measures nothing: it only
/// stops a test that hangs.
class test_alarm {
 public:
  /// @param what is named in the message. @param limit zero: no limit.
  test_alarm(std::string what, std::chrono::seconds limit);
  ~test_alarm();
  test_alarm(const test_alarm&) = delete;
  test_alarm& operator=(const test_alarm&) = delete;

  /// The exit code of a process that its alarm has ended.
  static constexpr int kExitCode = 86;
  /// The limit for one test or one role: the seconds in the environment variable VU_TEST_ALARM (0:
  /// no limit). The default is 50, or 180 for a Windows program, which may run under an emulator.
  static std::chrono::seconds default_limit();

 private:
  std::mutex m_mutex;
  std::condition_variable m_over;
  bool m_done = false;
  std::thread m_thread;
};

/// Whether the lock of one handle blocks reads and writes of a handle without a lock. True on
/// Linux, where the library enforces it, and on Windows. Wine grants and refuses locks like
/// Windows, but does not block reads and writes.
bool locks_are_enforced();

// ---- the helper's side -------------------------------------------------------------------------

using role_function = int (*)(const std::vector<std::string>& args);

/// Adds a role; see REGISTER_ROLE. @return true.
bool register_role(const char* name, role_function function);
/// Runs the role that the first program argument names ("--role=NAME"), under an alarm.
/// @return its exit code (2: unknown role, 3: exception), or nothing without such an argument.
std::optional<int> run_role(int argc, char** argv);

/// Registers a function as a role. Use it at namespace scope, without a semicolon.
#define REGISTER_ROLE(name, function) \
  [[maybe_unused]] static const bool role_##name##_is_registered = register_role(#name, function);

/// In a role: writes one line to the parent and flushes it.
void say(const std::string& line);
/// In a role: waits for one line from the parent.
/// @return nothing if the parent ended or closed its end of the pipe.
std::optional<std::string> hear();

// ---- the parent's side -------------------------------------------------------------------------

/// A helper process. The destructor kills it if it still runs.
class child_process {
 public:
  /// The time limit of a wait. It is long, because it measures nothing.
  static constexpr std::chrono::milliseconds kPatience{40'000};
  /// The result of wait() after kill().
  static constexpr int kKilled = 137;

  /// Starts this program in a role. Throws std::runtime_error if the system cannot.
  /// @param args ASCII. @param environment variables to set; an empty value removes one.
  explicit child_process(const std::string& role, const std::vector<std::string>& args = {},
                         const std::map<std::string, std::string>& environment = {});
  ~child_process();
  child_process(const child_process&) = delete;
  child_process& operator=(const child_process&) = delete;
  child_process(child_process&&) noexcept;
  child_process& operator=(child_process&&) = delete;

  /// Writes one line. @return false if the helper no longer reads.
  bool tell(const std::string& line);
  /// Closes the helper's input: its hear() returns nothing from now on.
  void close_input();
  /// Waits for the helper's next line.
  /// @return nothing after the time limit, or if the helper closed its output.
  std::optional<std::string> next_line(std::chrono::milliseconds limit = kPatience);
  /// Whether the next line is @p line. Any other result is also a test failure.
  bool hears(const std::string& line, std::chrono::milliseconds limit = kPatience);
  /// Whether no line comes in this time. For a helper that must wait for something.
  bool stays_silent(std::chrono::milliseconds time = std::chrono::milliseconds(150));

  /// Waits for the end. @return the exit code (after a signal 128 + its number), or nothing after
  /// the time limit.
  std::optional<int> wait(std::chrono::milliseconds limit = kPatience);
  /// Ends the helper like a crash, without cleanup. wait() still returns the exit code.
  void kill();

#if !defined(_WIN32)
  /// Suspends the helper. Returns when it is stopped.
  void stop();
  /// Resumes a stopped helper.
  void resume();
#endif

 private:
  struct system_part;
  std::unique_ptr<system_part> m_system;
  std::string m_pending;
};
