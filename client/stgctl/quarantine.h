#pragma once

#include <cstdint>
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

  std::uint64_t number() const { return m_number; }
  const std::string& storage() const { return m_storage; }
  const std::string& digest() const { return m_digest; }
  std::int64_t time() const { return m_time; }
  std::int64_t expires() const { return m_expires; }
  bool is_complete() const { return m_is_complete; }
  bool is_undone() const { return m_is_undone; }
  const std::vector<Step>& steps() const { return m_steps; }
  std::string item(const Step& step) const;

  /// An unfinished step for the same repair of the same path.
  const Step* unfinished(const Repair& repair) const;

  /// Writes a step to the manifest before it begins. @param before the bytes to keep, for an item
  /// that is not moved.
  const Step& note(const Repair& repair, const std::string* before, const std::string& after,
                   bool was_missing);
  void note_done(const Step& step);
  void note_complete();
  void note_undone();

 private:
  AppliedPlan() = default;
  void read(const std::string& text);
  void append(const Json& record);
  std::string folder() const;

  std::string m_quarantine;
  std::uint64_t m_number = 0;
  std::unique_ptr<admin::LockedFile> m_manifest;
  std::uint64_t m_end = 0;
  std::string m_storage;
  std::string m_digest;
  std::int64_t m_time = 0;
  std::int64_t m_expires = 0;
  bool m_is_complete = false;
  bool m_is_undone = false;
  std::vector<Step> m_steps;
};

/// The numbers of the plans in a quarantine, ascending.
std::vector<std::uint64_t> applied_plans(const std::string& quarantine);
/// Deletes what a plan removed, its manifest last. @return bytes deleted.
/// @throws Failure kFailed.
std::uint64_t remove_plan(const std::string& quarantine, std::uint64_t number);
/// A digest of the bytes, 32 digits.
std::string digest_of(std::string_view bytes);

}  // namespace stgctl
