#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/admin/check.h"
#include "client/stgctl/context.h"
#include "client/stgctl/output.h"

namespace stgctl {

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
std::optional<RepairKind> repair_named(std::string_view name);

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

/// A finding that a repair does not change.
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
/// The absolute form of a path below the storage folder. @throws Failure kRefused if it leads
/// elsewhere, or over a link.
std::string path_in_tree(Context& context, const std::string& path);

}  // namespace stgctl
