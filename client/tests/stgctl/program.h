#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// @file
/// Starts the client as a user's shell would: program_posix.cpp, program_windows.cpp.

/// The result of a program that has ended.
struct outcome {
  int code = -1;    ///< -1 if it had to be killed; 128 + the number of a signal
  std::string out;  ///< its standard output
  std::string err;  ///< its standard error output
};

/// A running program. The destructor kills it if it still runs.
class running_program {
 public:
  static constexpr std::chrono::seconds kPatience{60};

  /// @param arguments UTF-8, on Linux any bytes. @param environment variables to set or, with an
  /// empty value, to remove. The standard input is empty.
  running_program(const std::vector<std::string>& arguments,
                  const std::map<std::string, std::string>& environment = {});
  ~running_program();
  running_program(const running_program&) = delete;
  running_program& operator=(const running_program&) = delete;

  /// Waits until standard error contains a text. @return false if the program ends or kPatience is
  /// over first.
  bool complains(const std::string& text);
  /// Waits for the end for at most kPatience, then kills the program.
  outcome wait();
#if !defined(_WIN32)
  /// Like Ctrl-C.
  void interrupt();
  /// Like the end of a service.
  void terminate();
#endif

 private:
  struct system_part;
  std::unique_ptr<system_part> m_system;
};

#if !defined(_WIN32)
/// Whether this process may trace another one. Containers may forbid it, and old kernels do not
/// describe a system call.
bool can_trace();
/// Runs a program and kills it before its @p nth call that changes a file or a folder; 0: never.
/// @param words the program and its arguments.
/// @return the calls of that kind before the kill or the end. The last one was not made if the
/// program was killed.
int kill_before_change(std::vector<std::string> words, int nth);
#endif

/// The client's own file, beside the test program.
std::string client_path();
