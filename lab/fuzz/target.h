#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// @file
/// Targets for a fuzzer: functions that take any bytes, do something with them, and throw when what
/// came out is wrong. libfuzzer.cpp hands them to the fuzzer, replay_test.cpp to the committed
/// inputs.
namespace fuzz {

/// A result that must not be. Nobody catches it in a fuzzer: it ends the run as a finding.
class Finding : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

inline void require(bool holds, const char* what) {
  if (!holds) throw Finding(what);
}
/// With both texts.
inline void require_equal(const std::string& expected, const std::string& found, const char* what) {
  if (expected != found)
    throw Finding(std::string(what) + ": expected \"" + expected + "\", found \"" + found + "\"");
}

struct Target {
  const char* name;
  void (*function)(std::string_view bytes);
};

/// All that are linked into the program.
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

/// Takes bytes apart from the front, and says zeros and nothing at the end.
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
  /// Up to and without the next byte of 255, which is taken too.
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
