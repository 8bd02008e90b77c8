#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

/// The client on a pseudo-terminal of its own, as a person has it. Both its outputs come as one
/// text.
class pseudo_terminal {
 public:
  static constexpr std::chrono::seconds kPatience{40};

  explicit pseudo_terminal(const std::vector<std::string>& arguments, int columns = 100);
  ~pseudo_terminal();
  pseudo_terminal(const pseudo_terminal&) = delete;
  pseudo_terminal& operator=(const pseudo_terminal&) = delete;

  /// Waits until the text holds something. @return false when the program ends or time is over
  /// first.
  bool shows(const std::string& text);
  /// Types, control characters included ("\x03" is Ctrl-C).
  void type(const std::string& keys);
  /// Waits for the end. @return the exit code, 128 + a signal's number, -1 when it had to be
  /// killed.
  int wait();
  /// What came so far.
  const std::string& text() const { return m_text; }

 private:
  bool read_some(std::chrono::steady_clock::time_point end);

  ::pid_t m_process = -1;
  int m_terminal = -1;
  std::string m_text;
};
