#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "platform/os/os.h"
#include "tests/unit/index_fixture.h"

inline constexpr std::int64_t kNow = 1700000000;
inline constexpr std::int64_t kDay = 86400;

/// A folder that is cleaned at the time kNow.
class IndexCleaning : public IndexTest {
 protected:
  /// A file as old as given.
  void write_aged(const std::string& name, std::int64_t age, const std::string& bytes = "x") const {
    folder.write(name, bytes);
    set_modify_time(folder.path(name), kNow - age);
  }
  unsigned long clean(unsigned long limit, bool use_access_time = false) {
    return STGIndex::cleanOutOfDateOutput(folder.path(), limit, kept, use_access_time);
  }
  std::string entry(const std::string& key) const { return folder.path() + "\\" + key; }

  os::faults::Fault now = os::faults::set_now(kNow);
  STGIndex::AgeMap kept;
};
