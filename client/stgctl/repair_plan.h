#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/admin/check.h"
#include "client/stgctl/context.h"
#include "client/stgctl/output.h"

namespace stgctl {

/// What one repair does.
enum class RepairKind : std::uint8_t {
  kRemoveLines,     ///< takes lines that readers pass over out of an index
  kRemoveKeyLines,  ///< takes lines that name no document out of a key file
  kSetCounter,      ///< sets the counter beside an index to the highest number in use
  kQuarantine,      ///< moves a file or a folder into the quarantine
  kRestoreLines,    ///< brings names back into an index, from a snapshot or its damaged text
};
/// "remove-lines", "remove-key-lines", "set-counter", "quarantine", "restore-lines".
std::string_view name_of(RepairKind kind);
std::optional<RepairKind> repair_named(std::string_view name);

/// One repair. What it needs to find is part of it: what has changed since is left alone.
struct Repair {
  RepairKind kind = RepairKind::kRemoveLines;
  std::string code;                ///< of the finding
  std::string path;                ///< below the storage folder, with "/"
  std::vector<std::string> lines;  ///< of those that are about lines
  /// Of kRemoveLines: why readers pass over each, as IndexLint says; of kRestoreLines: where each
  /// comes from, "snapshot 2" or "text".
  std::vector<std::string> codes;
  std::string value;          ///< of kSetCounter
  bool is_folder = false;     ///< of kQuarantine
  std::uint64_t bytes = 0;    ///< of a file to be moved
  std::int64_t modified = 0;  ///< of what is to be moved
};

/// Something that a repair leaves alone.
struct LeftAlone {
  std::string code;
  std::string path;
  std::string detail;
  std::string remedy;
};

struct RepairPlan {
  std::string storage;
  std::int64_t time = 0;
  std::vector<Repair> repairs;
  std::vector<LeftAlone> left;
  std::vector<std::string> costs;   ///< a sentence for each folder of which most goes
  std::vector<std::string> spared;  ///< the same for those that were left alone; not written
};

/// Whether a plan may empty a folder, or take most of it away.
enum class Emptying : std::uint8_t { kSpared, kAllowed };

/// Checks the tree and plans what can be repaired. @param only the codes to repair; empty for all.
/// @throws Failure kInterrupted after Ctrl-C.
RepairPlan make_plan(Context& context, const std::vector<std::string>& only, Emptying emptying);

/// The plan as readable text, and back. A name that is no UTF-8 has its bytes beside it.
std::string text_of(const RepairPlan& plan);
/// @throws Failure kRefused, with the place in the plan, for whatever is no plan of this tree.
RepairPlan read_plan(Context& context, const std::string& text);

/// The fields "repair", "code", "path" and what else there is.
Json fields_of(const Repair& repair);
/// A repair out of such fields. @throws Failure kRefused for what is none.
Repair repair_of(const Json& object);
/// The bytes of a name that put_name() has put into an object. @throws Failure kRefused when it is
/// not there.
std::string name_in(const Json& object, const std::string& key);
/// The absolute path of one below the storage folder. @throws Failure kRefused when it leads
/// elsewhere, or over a link.
std::string path_in_tree(Context& context, const std::string& path);

}  // namespace stgctl
