#include "demo_report.h"

#include <iomanip>
#include <iostream>

namespace demo {

namespace {

// The first failures matter most; more lines would hide them.
constexpr std::size_t kFailuresPrinted = 20;

double seconds_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::string seconds_text(double seconds) {
  return text_of(std::fixed, std::setprecision(2), seconds, " s");
}

}  // namespace

std::string size_text(std::uint64_t bytes) {
  if (bytes < 1024) return text_of(bytes, " bytes");
  const double kb = static_cast<double>(bytes) / 1024;
  if (kb < 1024) return text_of(std::fixed, std::setprecision(1), kb, " KB");
  return text_of(std::fixed, std::setprecision(1), kb / 1024, " MB");
}

void Report::begin(const std::string& title) {
  end();
  m_open = true;
  m_section_checks = 0;
  m_section_failures = 0;
  m_section_start = Clock::now();
  std::cout << "\n" << ++m_sections << ". " << title << "\n";
}

void Report::end() {
  if (!m_open) return;
  m_open = false;
  std::cout << "   -> " << m_section_checks << " checks, "
            << (m_section_failures == 0 ? std::string("all passed")
                                        : text_of(m_section_failures, " FAILED"))
            << ", " << seconds_text(seconds_since(m_section_start)) << std::endl;
}

void Report::say(const std::string& line) { std::cout << "   " << line << "\n"; }

bool Report::check(bool good, const std::string& what) {
  ++m_checks;
  ++m_section_checks;
  if (good) return true;
  ++m_failures;
  ++m_section_failures;
  if (m_failures <= kFailuresPrinted) {
    std::cout << "   FAILED: " << what << std::endl;
    m_failed.push_back(what);
  }
  return false;
}

int Report::finish() {
  end();
  std::cout << "\n";
  if (m_failures == 0 && m_checks > 0) {
    std::cout << m_checks << " checks, all passed, in " << seconds_text(seconds_since(m_start))
              << std::endl;
    return 0;
  }
  std::cout << m_checks << " checks, " << m_failures << " FAILED:\n";
  for (const std::string& what : m_failed) std::cout << "  " << what << "\n";
  if (m_failures > m_failed.size())
    std::cout << "  and " << m_failures - m_failed.size() << " more\n";
  std::cout << std::flush;
  return 1;
}

}  // namespace demo
