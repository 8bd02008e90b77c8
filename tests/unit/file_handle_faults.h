#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/os/os.h"
#include "tests/support/file_spellings.h"
#include "tests/support/scratch.h"

/// @file
/// Handles on a file of ten bytes that the system is about to fail.

#if defined(_WIN32)
inline constexpr std::int32_t kSomeCode = 5;  // access denied
#else
inline constexpr std::int32_t kSomeCode = EACCES;
#endif
inline constexpr os::Status kSomeFailure{kSomeCode, os::Failure::kOther};

template <class Spelling>
class handle_fault_test : public testing::Test {
 protected:
  using file_type = typename Spelling::file;

  handle_fault_test() { write_file(path(), "0123456789"); }

  std::string path() const { return m_dir.path("f"); }
  file_type handle() const { return file_type(Spelling::to_text(path())); }
  static std::string system_text() { return "Error message :" + os::error_text(kSomeCode); }
  /// The two records of a failure.
  std::vector<std::string> failure(const std::string& what) const {
    return {what + " : " + path(), system_text()};
  }
  bool can_be_locked() const {
    file_type other(Spelling::to_text(path()));
    bool lock_failed = true;
    return other.try_open(vu_file_base::o_write, lock_failed, true) && !lock_failed;
  }

  scratch_folder m_dir;
};

/// A suite of such tests for both spellings.
#define HANDLE_FAULT_TESTS(suite)                      \
  template <class Spelling>                            \
  class suite : public handle_fault_test<Spelling> {}; \
  TYPED_TEST_SUITE(suite, file_spellings, spelling_names)
