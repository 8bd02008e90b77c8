#pragma once

#include <string>

#include "stg_index.h"
#include "tests/support/process.h"
#include "vu_file.h"

/// @file
/// What the helpers of the crowds write.
namespace reliability {

inline constexpr long kCrowdStamp = 7;
/// Of a helper that works through thousands of operations, in seconds.
inline constexpr const char* kLongAlarm = "3000";

inline std::string content_of(const std::string& logical) { return "the bytes of " + logical; }

/// Creates an entry and stores its bytes. @return the physical name.
inline std::string create_document(const std::string& folder, const std::string& logical) {
  const std::string physical = STGIndex::create(folder, logical, kCrowdStamp);
  vu_file file(folder, physical);
  file.open(vu_file::o_truncate);
  file.write(content_of(logical));
  file.close();
  return physical;
}

}  // namespace reliability
