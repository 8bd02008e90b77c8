#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// @file
/// Starts the client as a user's shell would: program_posix.cpp, program_windows.cpp.

/// What a program that has ended leaves behind.
struct outcome {
  int code = -1;    ///< -1 when it had to be killed; 128 + the number of a signal
  std::string out;  ///< its standard output
  std::string err;  ///< its standard error output
};

/// A program that runs. The object kills what still runs when it goes.
class running_program {
 public:
  static constexpr std::chrono::seconds kPatience{60};

  /// @param arguments UTF-8, on Linux any bytes. @param environment variables to set or, with an
  /// empty value, to remove. Its standard input is empty.
  running_program(const std::vector<std::string>& arguments,
                  const std::map<std::string, std::string>& environment = {});
  ~running_program();
  running_program(const running_program&) = delete;
  running_program& operator=(const running_program&) = delete;

  /// Waits until the standard error output holds a text. @return false when it ends or time is over
  /// first.
  bool complains(const std::string& text);
  /// Waits for the end, for as long as kPatience, then kills it.
  outcome wait();
#if !defined(_WIN32)
  /// As Ctrl-C does.
  void interrupt();
  /// As whoever ends a service does.
  void terminate();
#endif

 private:
  struct system_part;
  std::unique_ptr<system_part> m_system;
};

/// The client's own file, beside the test program.
std::string client_path();
