#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/stgctl/report.h"
#include "client/stgctl/target.h"

namespace stgctl {

/// A version, and what it is to be called.
struct Move {
  FoundEntry from;
  Target target;
  std::string name;
  std::int32_t timestamp = 0;
  std::optional<FoundEntry> replaced;  ///< the version that bears the new name

  /// What it becomes.
  Subject to() const {
    return {std::string(admin::name_of(target.area)), target.owner, name, timestamp};
  }
};

/// Tells that a version was moved, or would be.
void tell_moved(ChangeReport& report, const Move& move);

/// Moves versions batch by batch, and tells of each: they are stored under their new names, then
/// removed where they were. Killed in between, both are there; a version that somebody changes
/// meanwhile stays as well. @throws Failure kLockTimeout, kInterrupted; what was moved is told.
void move_versions(Context& context, std::vector<Move> moves, ChangeReport& report);

}  // namespace stgctl
