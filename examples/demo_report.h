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

/// Prints what happens, section by section, and counts what was checked.
class Report {
 public:
  /// Begins a section; one that is under way ends first.
  void begin(const std::string& title);
  /// Ends the section: its number of checks and its time.
  void end();
  /// One line of the section.
  void say(const std::string& line);
  /// One check. A failed one is printed at once and makes the whole run fail.
  bool check(bool good, const std::string& what);
  /// The closing line. @return the program's exit code: 0 when checks were made and all passed.
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
