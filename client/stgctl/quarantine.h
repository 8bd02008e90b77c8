#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "client/admin/locked_file.h"
#include "client/stgctl/context.h"
#include "client/stgctl/output.h"
#include "client/stgctl/repair_plan.h"

namespace stgctl {

/// The quarantine of a tree: a folder beside it with one sub-folder per plan that was applied.
///
///   plan-0001/manifest.jsonl   what was done, a line of JSON each; every line is on the device
///                              before it is done
///   plan-0001/0001             what the first step took: a file or folder that was moved, or the
///                              bytes that an index, key file or counter had before
///
/// @throws Failure kRefused for a place in the tree.
std::string quarantine_folder(Context& context, const std::string& option);
void add_quarantine_option(Arguments& app, std::string& option);

/// One step of a plan as its manifest has it.
struct Step {
  std::size_t number = 0;
  Repair repair;
  bool is_done = false;
  std::string after;         ///< the digest of the bytes afterwards; empty for what was moved
  bool was_missing = false;  ///< of a counter that was not there
};

/// A plan that was applied, or half of it, and what it took.
class AppliedPlan {
 public:
  /// Opens one that is there, or begins one; its manifest stays locked, so that nobody else works
  /// on it.
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

  /// A step that was begun and not completed, for the same repair of the same path.
  const Step* unfinished(const Repair& repair) const;

  /// Notes a step before it is done. @param before the bytes to keep, for what is not moved.
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
/// Removes what a plan took, for good; its manifest last. @return bytes removed.
/// @throws Failure kFailed.
std::uint64_t remove_plan(const std::string& quarantine, std::uint64_t number);
/// 32 digits that stand for the bytes.
std::string digest_of(std::string_view bytes);

}  // namespace stgctl
