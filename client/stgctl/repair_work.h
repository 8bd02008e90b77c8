#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "client/stgctl/context.h"
#include "client/stgctl/quarantine.h"
#include "client/stgctl/repair_plan.h"

/// @file
/// Single repairs, done and undone. Each first checks that its target is still in the planned
/// state. Each can be repeated after a process was killed during it.
namespace stgctl {

/// The result of a repair or of its undo.
struct Worked {
  enum class How : std::uint8_t { kDone, kSkipped, kFailed };
  How how = How::kDone;
  std::string text;  ///< the reason, or details of the result
};

/// The plan in which steps are recorded. It is created with the first step that changes something.
class WorkPlan {
 public:
  /// @param digest of the applied plan: an unfinished plan with this digest is continued.
  /// @param keep seconds until the plan expires.
  WorkPlan(Context& context, std::string quarantine, std::string digest, std::int64_t keep);

  /// Whether this is a dry run, which has no plan.
  bool is_dry() const;
  /// The plan, if one was begun.
  AppliedPlan* begun() { return m_plan ? &*m_plan : nullptr; }
  AppliedPlan& get();

 private:
  Context& m_context;
  std::string m_quarantine;
  std::string m_digest;
  std::int64_t m_keep;
  std::optional<AppliedPlan> m_plan;
};

/// Does a repair; a dry run returns what it would do.
/// @throws Failure kLockTimeout, kInterrupted, and kFailed if the manifest cannot be written.
Worked do_repair(Context& context, const Repair& repair, WorkPlan& plan);

/// Reverses a step. A dry run changes nothing and returns what it would do.
/// @throws as do_repair().
Worked undo_step(Context& context, const AppliedPlan& plan, const Step& step);

}  // namespace stgctl
