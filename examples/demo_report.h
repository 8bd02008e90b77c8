#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

namespace demo {

/// Joins values into one text.
template <class... Values>
std::string text_of(const Values&... values) {
  std::ostringstream out;
  (out << ... << values);
  return out.str();
}

/// "617 bytes", "12.3 KB", "4.5 MB".
std::string size_text(std::uint64_t bytes);

/// Prints the run in sections and counts the checks.
class Report {
 public:
  /// Begins a section; ends the previous one first.
  void begin(const std::string& title);
  /// Ends the section and prints its number of checks and its time.
  void end();
  void say(const std::string& line);
  /// Counts a check. A failed check is printed at once and makes the run fail. @return @p good.
  bool check(bool good, const std::string& what);
  /// Prints the result. @return the program's exit code: 0 when there were checks and all passed.
  int finish();

 private:
  using Clock = std::chrono::steady_clock;

  bool m_open = false;
  std::size_t m_sections = 0;
  std::size_t m_checks = 0;
  std::size_t m_failures = 0;
  std::size_t m_section_checks = 0;
  std::size_t m_section_failures = 0;
  Clock::time_point m_start = Clock::now();
  Clock::time_point m_section_start;
  std::vector<std::string> m_failed;
};

}  // namespace demo
