#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <mutex>
#include <set>
#include <string>

#include "vu/storage.h"

/// @file
/// Records which functions of the C interface have succeeded in this program. Code after this
/// header calls them through macros that the build generates from vu/storage.h. A function that is
/// added there is recorded automatically.
///
/// If VU_TEST_EVERY_FUNCTION is set, the program fails at its end when a function never succeeded.
/// Set it only if one process runs all cases.
namespace called {

inline std::set<std::string>& functions() {
  static std::set<std::string> all;
  return all;
}
inline void note(const char* function) {
  static std::mutex mutex;
  const std::lock_guard lock(mutex);
  functions().insert(function);
}
inline vu_status note(const char* function, vu_status status) {
  if (status == VU_DONE) note(function);
  return status;
}

}  // namespace called

#include <called_functions.h>

namespace called {

class EveryFunction final : public testing::Environment {
  void TearDown() override {
    if (std::getenv("VU_TEST_EVERY_FUNCTION") == nullptr) return;
    for (const char* const function : kFunctions)
      EXPECT_EQ(functions().count(function), 1U) << function << " has succeeded in no case";
  }
};

inline testing::Environment* const registered =
    testing::AddGlobalTestEnvironment(new EveryFunction);

}  // namespace called
