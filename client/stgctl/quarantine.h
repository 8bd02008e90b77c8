#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "client/admin/locked_file.h"
#include "client/stgctl/command.h"
#include "client/stgctl/context.h"
#include "client/stgctl/output.h"
#include "client/stgctl/repair_plan.h"

namespace stgctl {

/// The quarantine of a tree: a folder beside it with one sub-folder per applied plan.
///
///   plan-0001/manifest.jsonl   the steps, a line of JSON each; every line is on the device before
///                              its step begins
///   plan-0001/0001             what the first step removed: a moved file or folder, or the old
///                              bytes of an index, key file or counter
///
/// @throws Failure kRefused for a place in the tree.
std::string quarantine_folder(Context& context, const std::string& option);
struct QuarantineOption : TextOption {
  explicit QuarantineOption(Arguments app);
};

/// One step of a plan in its manifest.
struct Step {
  std::size_t number = 0;
  Repair repair;
  bool is_done = false;
  std::string after;         ///< the digest of the new bytes; empty for a moved item
  bool was_missing = false;  ///< of a counter that did not exist
};

/// What the manifest of a plan says.
struct PlanRecord {
  std::uint64_t number = 0;
  std::string storage;
  std::string digest;
  std::int64_t time = 0;
  std::int64_t expires = 0;
  bool is_complete = false;
  bool is_undone = false;
  std::vector<Step> steps;

  bool is_expired() const { return expires <= os::now(); }
};

/// A completely or partly applied plan, and what it removed.
class AppliedPlan {
 public:
  /// Opens an existing plan, or begins one. Its manifest stays locked, which excludes other
  /// processes.
  /// @throws Failure kFailed, kLockTimeout.
  static AppliedPlan open(Context& context, const std::string& folder, std::uint64_t number,
                          admin::LockedFile::For purpose);
  static AppliedPlan begin(Context& context, const std::string& folder, const std::string& digest,
                           std::int64_t keep);

  const PlanRecord& record() const { return m_record; }
  /// Where the plan keeps what a step removed.
  std::string item(const Step& step) const;

  /// An unfinished step for the same repair of the same path.
  const Step* unfinished(const Repair& repair) const;
  /// The unfinished step, or a new one, which it writes to the manifest. @param before the bytes to
  /// keep, for an item that is not moved.
  Step begin_step(const Repair& repair, const std::string* before = nullptr,
                  const std::string& after = {}, bool was_missing = false);
  void note_done(const Step& step);
  void note_complete();
  void note_undone();

 private:
  AppliedPlan() = default;
  void read(const std::string& text);
  void read(const nlohmann::json& record);
  void append(const Json& record);
  std::string folder() const;
  std::string path() const;

  std::string m_quarantine;
  std::unique_ptr<admin::LockedFile> m_manifest;
  std::uint64_t m_end = 0;
  PlanRecord m_record;
};

/// The numbers of the plans in a quarantine, ascending.
std::vector<std::uint64_t> applied_plans(const std::string& quarantine);
/// The plans of this tree that are wanted. @param omitted a plan not to look at; 0 for none.
std::vector<std::uint64_t> plans_of_tree(Context& context, const std::string& quarantine,
                                         const std::function<bool(const PlanRecord&)>& wanted,
                                         std::uint64_t omitted = 0);
/// Deletes what a plan removed, its manifest last. @return bytes deleted.
/// @throws Failure kFailed.
std::uint64_t remove_plan(const std::string& quarantine, std::uint64_t number);
/// A digest of the bytes, 32 digits.
std::string digest_of(std::string_view bytes);

}  // namespace stgctl
