#pragma once

#include <nlohmann/json_fwd.hpp>

#include "client/admin/check.h"
#include "client/admin/folder_view.h"
#include "client/admin/locked_file.h"
#include "client/stgctl/command.h"

/// @file
/// Repairs: a plan of them, the quarantine for what they remove, and the work on each.
namespace stgctl {

// ---- plans (repair_plan.cpp) -------------------------------------------------------------------

/// What a repair does.
enum class RepairKind : std::uint8_t {
  kRemoveLines,     ///< removes lines that readers skip from an index
  kRemoveKeyLines,  ///< removes lines that name no document from a key file
  kSetCounter,      ///< sets the counter beside an index to the highest number in use
  kQuarantine,      ///< moves a file or a folder into the quarantine
  kRestoreLines,    ///< restores names in an index, from a snapshot or its damaged text
};
/// "remove-lines", "remove-key-lines", "set-counter", "quarantine", "restore-lines".
std::string_view name_of(RepairKind kind);

/// One repair. It includes the state that it must find: what changed since then is skipped.
struct Repair {
  RepairKind kind = RepairKind::kRemoveLines;
  std::string code;                ///< of the finding
  std::string path;                ///< below the storage folder, with "/"
  std::vector<std::string> lines;  ///< of the repairs of lines
  /// Of kRemoveLines: why readers skip each line, as IndexLint says. Of kRestoreLines: the source
  /// of each line, "snapshot 2" or "text".
  std::vector<std::string> codes;
  std::string value;          ///< of kSetCounter
  bool is_folder = false;     ///< of kQuarantine
  std::uint64_t bytes = 0;    ///< of a file to be moved
  std::int64_t modified = 0;  ///< of an item to be moved
};

struct RepairPlan {
  std::string storage;
  std::int64_t time = 0;
  std::vector<Repair> repairs;
  std::vector<Json> left;           ///< a finding each that no repair changes
  std::vector<std::string> costs;   ///< per folder that would lose most of its content
  std::vector<std::string> spared;  ///< per folder that is not planned; not in the file
};

/// Whether a plan may empty a folder, or remove most of it.
enum class Emptying : std::uint8_t { kSpared, kAllowed };

/// Checks the tree and plans all possible repairs. @param only the codes to repair; empty for all.
/// @throws Failure kInterrupted after Ctrl-C.
RepairPlan make_plan(Context& context, const std::vector<std::string>& only, Emptying emptying);

/// The plan as JSON over several lines. A name that is not UTF-8 also has its bytes.
std::string text_of(const RepairPlan& plan);
/// @throws Failure kRefused, with the place in the plan, if the text is not a plan of this tree.
RepairPlan read_plan(Context& context, const std::string& text);

/// The fields "repair", "code", "path" and those of its kind.
Json fields_of(const Repair& repair);
/// A repair from such fields. @throws Failure kRefused if they are not valid.
Repair repair_of(const nlohmann::json& object);
/// The bytes of a text in an object that Json wrote. @throws Failure kRefused if it is
/// missing.
std::string name_in(const nlohmann::json& object, const std::string& key);
/// Why a file or folder is not one to move into the quarantine; null if it is.
const char* why_not_movable(const admin::FolderView& view, const std::string& path, bool is_folder);
/// The absolute form of a path below the storage folder. @throws Failure kRefused if it leads
/// elsewhere, or over a link.
std::string path_in_tree(Context& context, const std::string& path);

// ---- the quarantine (quarantine.cpp) -----------------------------------------------------------

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
  explicit QuarantineOption(Arguments app)
      : TextOption(app, "--quarantine", "DIR",
                   "The folder for what repairs move away (beside the storage folder: "
                   "'storage.quarantine')") {}
};

/// One step of a plan in its manifest.
struct RepairStep {
  std::size_t number = 0;
  Repair repair;
  bool is_done = false;
  std::string after;         ///< the checksum of the new bytes; empty for a moved item
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
  std::vector<RepairStep> steps;

  bool is_expired() const { return expires <= os::now(); }
};

/// A completely or partly applied plan, and what it removed.
class AppliedPlan {
 public:
  /// Opens a plan. Its manifest stays locked, which excludes other processes.
  /// @throws Failure kFailed, kLockTimeout; so does begin().
  AppliedPlan(Context& context, const std::string& folder, std::uint64_t number,
              admin::LockedFile::For purpose);
  static AppliedPlan begin(Context& context, const std::string& folder, const std::string& digest,
                           std::int64_t keep);

  const PlanRecord& record() const { return m_record; }
  /// Where the plan keeps what a step removed.
  std::string item(const RepairStep& step) const;

  /// An unfinished step for the same repair of the same path.
  const RepairStep* unfinished(const Repair& repair) const;
  /// The unfinished step, or a new one, which it writes to the manifest. @param before the bytes to
  /// keep, for an item that is not moved.
  RepairStep begin_step(const Repair& repair, const std::string* before = nullptr,
                        const std::string& after = {}, bool was_missing = false);
  void note_done(const RepairStep& step);
  void note_complete();
  void note_undone();

 private:
  void read(std::string_view text);
  void read(const nlohmann::json& record);
  void append(const char* kind, const Json& fields);
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

// ---- the work (repair_work.cpp) ----------------------------------------------------------------
//
// Each repair first checks that its target is still in the planned state. Each can be repeated
// after a process was killed during it.

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
Worked undo_step(Context& context, const AppliedPlan& plan, const RepairStep& step);

}  // namespace stgctl
