#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "client/stgctl/context.h"
#include "client/stgctl/quarantine.h"
#include "client/stgctl/repair_plan.h"

/// @file
/// Single repairs, done and undone. Each looks first whether what it is about still is as it was
/// planned, and can be done again after a process was killed in its midst.
namespace stgctl {

/// What became of a repair or of its undoing.
struct Worked {
  enum class How : std::uint8_t { kDone, kSkipped, kFailed };
  How how = How::kDone;
  std::string text;  ///< the reason, or what more there is to tell
};

/// The plan that steps are noted in. It is begun with the first step that has something to do.
class WorkPlan {
 public:
  /// @param digest of the plan that is applied: what was begun for it and not completed is gone on
  /// with.
  /// @param keep seconds until the quarantine expires.
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

/// Does a repair, or tells in a dry run what would be done.
/// @throws Failure kLockTimeout, kInterrupted, and kFailed when the manifest cannot be written.
Worked do_repair(Context& context, const Repair& repair, WorkPlan& plan);

/// Notes in a manifest that all is done. Where that fails, asking again finds nothing left to do
/// and notes it then: a warning is enough.
void note(Context& context, const std::function<void()>& noting);

/// Reverses a step. @param dry_run changes nothing and tells what would be done. @throws as
/// do_repair().
Worked undo_step(Context& context, const AppliedPlan& plan, const Step& step, bool dry_run);

}  // namespace stgctl
