#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// @file
/// A fuzz target is a function of any bytes. It throws if a result is wrong. libfuzzer.cpp runs it
/// in the fuzzer, replay_test.cpp with the committed inputs.
namespace fuzz {

/// A wrong result. Nothing catches it in the fuzzer, so it ends the run.
class Finding : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

inline void require(bool holds, const char* what) {
  if (!holds) throw Finding(what);
}
inline void require_equal(const std::string& expected, const std::string& found, const char* what) {
  if (expected != found)
    throw Finding(std::string(what) + ": expected \"" + expected + "\", found \"" + found + "\"");
}

struct Target {
  const char* name;
  void (*function)(std::string_view bytes);
};

/// All targets of the program.
inline std::vector<Target>& targets() {
  static std::vector<Target> all;
  return all;
}

inline bool register_target(const Target& target) {
  targets().push_back(target);
  return true;
}

#define REGISTER_FUZZ_TARGET(identifier, name)                             \
  [[maybe_unused]] static const bool target_##identifier##_is_registered = \
      ::fuzz::register_target({name, identifier});

/// Splits the input from its front. After the end it returns zeros and empty texts.
class Source {
 public:
  explicit Source(std::string_view bytes) : m_rest(bytes) {}

  bool is_empty() const { return m_rest.empty(); }
  unsigned char byte() {
    if (m_rest.empty()) return 0;
    const auto value = static_cast<unsigned char>(m_rest.front());
    m_rest.remove_prefix(1);
    return value;
  }
  /// The text up to the next byte 255, which is skipped.
  std::string text() {
    const std::string_view all = m_rest.substr(0, m_rest.find('\xFF'));
    m_rest.remove_prefix(all.size() < m_rest.size() ? all.size() + 1 : all.size());
    return std::string(all);
  }
  std::string rest() { return std::string(std::exchange(m_rest, {})); }

 private:
  std::string_view m_rest;
};

}  // namespace fuzz
