#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "platform/os/os.h"
#include "tests/support/real_kernel.h"
#include "tests/support/scratch.h"

/// @file
/// Helpers for the tests of internal functions, most of them for those of the seam.

using Texts = std::vector<std::string>;

inline Texts operator+(Texts left, const Texts& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

/// A failure of a system call for an unspecified reason.
inline constexpr os::Status kRefused{5, os::Failure::kOther};

/// The number of the call that fails in this round of a loop, from 1. The loop ends with the round
/// whose call is never made. So a loop that ends with its first round has tested nothing.
///
///     for (FaultNumber nth;; ++nth) {
///       const auto fault = faults::fail(Call::read, kRefused, nth);
///       ...
///       if (fault.hits() == 0) break;
class FaultNumber {
 public:
  FaultNumber() = default;
  ~FaultNumber() { EXPECT_GT(m_number, 1U) << "no call was made to fail"; }
  FaultNumber(const FaultNumber&) = delete;
  FaultNumber& operator=(const FaultNumber&) = delete;

  FaultNumber& operator++() {
    ++m_number;
    return *this;
  }
  // NOLINTNEXTLINE(google-explicit-constructor): it is used as a number
  operator std::uint64_t() const { return m_number; }

 private:
  std::uint64_t m_number = 1;
};

// GoogleTest finds this operator through its namespace when it prints a value.
namespace os {

inline std::ostream& operator<<(std::ostream& out, os::Failure failure) {
  switch (failure) {
    case os::Failure::kNone: return out << "success";
    case os::Failure::kNotFound: return out << "not found";
    case os::Failure::kAlreadyExists: return out << "already exists";
    case os::Failure::kLocked: return out << "locked";
    case os::Failure::kNoName: return out << "no name for a file";
    case os::Failure::kOther: return out << "another failure";
  }
  return out << "?";
}

}  // namespace os

/// The codes of both systems for one failure.
struct Codes {
  std::int32_t posix;
  std::int32_t windows;
  std::int32_t here() const { return kOnWindows ? windows : posix; }
};

inline testing::AssertionResult succeeds(os::Status status) {
  if (status.ok()) return testing::AssertionSuccess();
  return testing::AssertionFailure()
         << status.failure() << ", code " << status.code() << ": " << os::error_text(status.code());
}

inline testing::AssertionResult fails(os::Status status, os::Failure failure) {
  if (status.failure() == failure) return testing::AssertionSuccess();
  return testing::AssertionFailure() << status.failure() << ", code " << status.code();
}

inline testing::AssertionResult fails(os::Status status, os::Failure failure, Codes codes) {
  if (status.failure() == failure && status.code() == codes.here()) {
    return testing::AssertionSuccess();
  }
  return testing::AssertionFailure() << status.failure() << ", code " << status.code();
}

/// Converts UTF-8 to the wide text of paths.
inline ucs2string wide(const std::string& text) { return ucs2string(vu_utf8string(text)); }
inline std::string narrow(const ucs2string& text) { return vu_utf8string(text).str(); }

/// A handle that is closed at the end of its scope.
class OpenFile {
 public:
  OpenFile(const std::string& path, os::Access access) {
    m_opened = os::open(path, access, m_handle);
    EXPECT_TRUE(succeeds(m_opened)) << path;
  }
  ~OpenFile() {
    if (m_handle == os::kNoHandle) return;
    EXPECT_TRUE(succeeds(os::close(m_handle)));
  }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  os::Handle get() const { return m_handle; }
  void close() {
    EXPECT_TRUE(succeeds(os::close(m_handle)));
    m_handle = os::kNoHandle;
  }

  os::Status lock(std::uint32_t flags) {
    alignas(os::kLockRegionAlign) unsigned char region[os::kLockRegionSize] = {};
    return os::lock(m_handle, {flags, 0, 0xFFFFFFFF, 0xFFFFFFFF, region});
  }
  os::Status lock_shared() { return lock(os::kLockFailAtOnce); }
  os::Status lock_exclusive() { return lock(os::kLockFailAtOnce | os::kLockExclusive); }

  /// Reads up to @p count bytes. A failure fails the test.
  std::string read(std::size_t count) {
    std::string bytes(count, '\0');
    std::size_t done = 0;
    EXPECT_TRUE(succeeds(os::read(m_handle, bytes.data(), count, done)));
    bytes.resize(done);
    return bytes;
  }
  /// Writes all of @p bytes. A failure fails the test.
  void write(const std::string& bytes) {
    std::size_t done = 0;
    EXPECT_TRUE(succeeds(os::write(m_handle, bytes.data(), bytes.size(), done)));
    EXPECT_EQ(done, bytes.size());
  }
  os::Status try_read() {
    char byte = 0;
    std::size_t done = 0;
    return os::read(m_handle, &byte, 1, done);
  }
  os::Status try_write() {
    std::size_t done = 0;
    return os::write(m_handle, "x", 1, done);
  }

 private:
  os::Handle m_handle = os::kNoHandle;
  os::Status m_opened;
};

// Which names a search pattern finds: observed results of Windows calls for a folder of these
// names. "." and ".." are entries of every folder.

inline const std::vector<std::string>& pattern_names() {
  static const std::vector<std::string> names = {
      ".", "..", "a", "ab", "abc", "a.b", "a.bc", "noext", "x.y.z", ".hid", "dir.d", "00000001"};
  return names;
}

struct PatternCase {
  std::string pattern;
  std::vector<std::string> found;

  bool finds(const std::string& name) const {
    return std::find(found.begin(), found.end(), name) != found.end();
  }
};

inline const std::vector<PatternCase>& pattern_cases() {
  static const std::vector<PatternCase> cases = {
      {"*", pattern_names()},
      {"**", pattern_names()},
      {"*.*", pattern_names()},
      {"*.*.*", pattern_names()},
      {"*.", pattern_names()},
      {"*..", pattern_names()},
      {"?*", pattern_names()},
      {"?", {".", "a"}},
      {"?.", {".", "a"}},
      {"??", {"..", "ab"}},
      {"???", {"abc", "a.b"}},
      {"a*", {"a", "ab", "abc", "a.b", "a.bc"}},
      {"a*.", {"a", "ab", "abc", "a.b", "a.bc"}},
      {"a*.*", {"a", "ab", "abc", "a.b", "a.bc"}},
      {"a?", {"ab"}},
      {"a??", {"abc", "a.b"}},
      {"a.?", {"a.b"}},
      {"a.??", {"a.bc"}},
      {"a.*", {"a", "a.b", "a.bc"}},
      {"?.*", {".", "..", "a", "a.b", "a.bc", "x.y.z"}},
      {"?.b", {"a.b"}},
      {"*.b", {"a.b"}},
      {"*.b*", {"a.b", "a.bc"}},
      {"*.b?", {"a.bc"}},
      {"*.z", {"x.y.z"}},
      {"*.y.z", {"x.y.z"}},
      {"x.*", {"x.y.z"}},
      {"x.*.z", {"x.y.z"}},
      {"*y*", {"x.y.z"}},
      {"noext.*", {"noext"}},
      {"noext*", {"noext"}},
      {"noext?", {}},
      {"q*", {}},
      {".*", {".", "..", ".hid"}},
      {"*hid", {".hid"}},
      {"?hid", {".hid"}},
      {"dir.*", {"dir.d"}},
      {"*.d.", {"dir.d"}},
      {"*d", {".hid", "dir.d"}},
      {"0000000?", {"00000001"}},
      {"0000????", {"00000001"}},
      {"*1", {"00000001"}},
      {"a**c", {"abc", "a.bc"}},
      {"a*b*c", {"abc", "a.bc"}},
      {"*a?c", {"abc"}},
      {"abc?.", {}},
  };
  return cases;
}
