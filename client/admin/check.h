#pragma once

#include <array>
#include <cstdint>

#include "client/admin/finding.h"
#include "client/admin/system.h"
#include "client/admin/tree.h"

namespace admin {

enum class Depth : std::uint8_t {
  kQuick,  ///< names and indexes
  kFull,   ///< sizes and times of files, key files and sub-parts as well
};

struct CheckOptions {
  Scope scope;
  Depth depth = Depth::kFull;
  sys::Locking locking;
  /// A path longer than nine tenths of this is near the limit.
  std::size_t path_limit = sys::kPathLimit;
  /// Ends the check at the next folder once it is set.
  const std::atomic<bool>* stop = nullptr;
  /// Whether indexes, counters and folders are tried for writing, as their users would; nothing is
  /// written.
  bool ask_writable = true;
  /// Told of each folder before it is looked at.
  std::function<void(const DocumentFolder&)> on_folder;
};

/// What a check has looked at and counted.
struct CheckSummary {
  std::uint64_t folders = 0;
  std::uint64_t entries = 0;   ///< valid lines
  std::uint64_t files = 0;     ///< plain files in document folders, indexes left out
  std::uint64_t unserved = 0;  ///< documents that an index names and nobody is served
  std::array<std::uint64_t, kCodes> findings{};
  bool was_stopped = false;

  std::uint64_t count(Severity severity) const;
};

/// Checks a tree and hands on each finding as it is met, folder after folder.
CheckSummary check(const Tree& tree, const CheckOptions& options, const FindingSink& sink);

}  // namespace admin
