#include "client/stgctl/repair.h"

#include <array>
#include <nlohmann/json.hpp>
#include <set>

#include "client/admin/key_files.h"
#include "client/admin/repair_text.h"
#include "client/stgctl/look.h"
#include "client/stgctl/names_file.h"

namespace stgctl {

namespace {

using Parsed = nlohmann::json;

/// @throws Parsed::exception if the value is not an array.
const Parsed::array_t& items_of(const Parsed& value) {
  return value.get_ref<const Parsed::array_t&>();
}

constexpr const char* kSchema = "stgctl.repair-plan/1";
constexpr std::array<std::string_view, 5> kKinds = {"remove-lines", "remove-key-lines",
                                                    "set-counter", "quarantine", "restore-lines"};

template <class... Args>
[[noreturn]] void reject(admin::FormatPattern<sizeof...(Args)> pattern, const Args&... args) {
  refuse("the plan is not accepted: {}; write one with 'stgctl repair --plan FILE'",
         formatted(pattern, args...));
}

// ---- from the findings of a check to a plan ----------------------------------------------------

using admin::Code;
using admin::Finding;

constexpr const char* kNamesFirst =
    "names are restored first; apply this plan, then write another one";
constexpr const char* kNeedsForce =
    "it would remove most of the folder; restore names and files first, or use --force";

constexpr const char* kIndexUnread =
    "its index cannot be read; mend that first, then write another plan";
constexpr const char* kOddName =
    "rename it first: a plan has no name with a separator, a wildcard or a line feed";
constexpr const char* kNameLost =
    "its name may have been in the damaged lines: restore the index from a backup, give the file "
    "an entry with 'stgctl sync', or use --force";

constexpr const char* kLineKept =
    "names of files beside the index may have been in this line: restore the index from a backup, "
    "correct the line by hand, or use --force";

/// Whether the file name is a number that the library gave: only an index knows the logical name.
bool is_number(std::string_view name) {
  const std::string_view stem = name.substr(0, name.find('.'));
  return stem.size() >= 8 && stem.find_first_not_of("0123456789") == std::string_view::npos;
}

/// The code of the finding that 'check' reports for such a line.
Code code_of(admin::Verdict verdict) {
  if (verdict == admin::Verdict::kNoFile) return Code::kLineWithoutFile;
  return verdict == admin::Verdict::kDuplicateKey ? Code::kDuplicateKey : Code::kMalformedLine;
}

/// Why a repair cannot have this path below the storage folder; null if it can.
const char* why_no_target(std::string_view path) {
  const std::vector<std::string_view> parts = split(path, '/');
  for (const std::string_view& part : parts) {
    const bool is_index = index_format::is_index_file(part);
    if ((!is_index && admin::why_not_safe(part) != nullptr) ||
        (is_index && &part != &parts.back()) ||
        (&part == &parts.front() && !admin::area_named(part)))
      return "is not a path in the tree";
  }
  return parts.size() < 2 ? "is not a file of a document folder" : nullptr;
}

bool is_about_lines(Code code) {
  return code == Code::kLineWithoutFile || code == Code::kDuplicateKey ||
         code == Code::kMalformedLine;
}

std::string code_name(Code code) { return std::string(admin::kind_of(code).name); }

/// Turns the findings of a check into repairs, folder by folder.
class Planning {
 public:
  Planning(Context& context, const std::vector<std::string>& only, Emptying emptying)
      : m_context(context),
        m_only(only.begin(), only.end()),
        m_emptying(emptying),
        m_saved(context) {}

  RepairPlan run() {
    const admin::Tree& tree = m_context.tree();
    m_plan.storage = tree.storage;
    m_plan.time = os::now();
    auto asked = m_context.walk<admin::CheckOptions>();
    std::map<std::string, std::vector<Finding>> by_folder;
    {
      Progress progress(m_context.out(), "checking", asked);
      admin::check(tree, asked, [&](const Finding& finding) {
        if (admin::kind_of(finding.code).severity != admin::Severity::kInfo)
          by_folder[finding.folder].push_back(finding);
      });
    }
    Context::stop_if_interrupted();
    for (const auto& [path, findings] : by_folder) plan_folder(path, findings);
    return std::move(m_plan);
  }

 private:
  bool wanted(Code code) const { return m_only.empty() || m_only.contains(code_name(code)); }

  std::string relative(const std::string& path) const {
    return admin::saved_name_of(m_context.tree(), path);
  }

  void plan_folder(const std::string& path, const std::vector<Finding>& findings) {
    admin::DocumentFolder folder;
    folder.path = path;
    m_view.load(folder, m_context.locking());
    m_planned_lines.clear();
    m_index_stays = why_index_stays();
    m_is_restored = m_index_stays.empty() && plan_restoring();
    note_lost_names(findings);
    const std::size_t before = m_plan.repairs.size();
    const bool has_lines = m_view.index_state() == admin::IndexState::kRead;
    if (has_lines && !m_is_restored && m_index_stays.empty()) plan_lines();
    std::vector<const Finding*> done;
    for (const Finding& finding : findings) {
      const bool is_damage = finding.code == Code::kMalformedLine;
      m_remedy = m_is_restored                  ? kNamesFirst
                 : is_kept(finding)             ? is_damage ? kLineKept : kNameLost
                 : is_about_lines(finding.code) ? m_index_stays
                                                : std::string();
      const bool is_planned =
          is_about_lines(finding.code) && m_planned_lines.contains(finding.line);
      if (is_planned || (wanted(finding.code) && plan(finding))) {
        done.push_back(&finding);
      } else {
        leave(finding, m_remedy);
      }
    }
    if (!m_is_restored) spare_folder(path, before, done);
  }

  /// Why no repair can change the index, or move a file under its lock; empty if one can.
  std::string why_index_stays() const {
    const std::string path = m_view.path_of(index_format::kIndexFile);
    if (why_no_target(relative(path)) != nullptr) return kOddName;
    const admin::IndexState state = m_view.index_state();
    if (state == admin::IndexState::kMissing) return {};
    if (state == admin::IndexState::kLocked || state == admin::IndexState::kFailed)
      return kIndexUnread;
    return why_not_changed(path);
  }

  /// Why a repair cannot write a file or folder; empty if it can.
  std::string why_not_changed(const std::string& path) const {
    const os::Status status = sys::probe_writable(path);
    if (status.ok()) return {};
    return formatted("{} cannot be written: {}; mend that first, then write another plan",
                     shown(relative(path)), admin::why_not_writable(path, status));
  }

  /// Whether a repair can have the path as its target and write @p written. If not, notes what to
  /// do first.
  bool can_repair(const std::string& path, const std::string& written) {
    const bool is_target = why_no_target(relative(path)) == nullptr;
    const std::string why = is_target ? why_not_changed(written) : kOddName;
    if (!why.empty()) m_remedy = why;
    return why.empty();
  }

  /// Restores what a snapshot or the damaged text still contains, before anything is removed.
  bool plan_restoring() {
    const bool is_damaged = m_view.index_state() == admin::IndexState::kRead ||
                            m_view.index_state() == admin::IndexState::kNoBytes;
    if (!is_damaged || !has_lost_names()) return false;
    Repair repair;
    repair.kind = RepairKind::kRestoreLines;
    repair.path = relative(m_view.path_of(index_format::kIndexFile));
    repair.code = m_view.index_state() == admin::IndexState::kNoBytes
                      ? code_name(Code::kEmptyIndex)
                      : code_name(Code::kFileWithoutLine);
    if (!m_only.empty() && !m_only.contains(repair.code)) return false;
    const SavedNames::Known known = m_saved.best_for(m_view);
    std::set<std::string, std::less<>> keys;
    const auto add = [&](const std::string& line, const std::string& from) {
      if (!keys.insert(line.substr(0, line.find('/'))).second) return;
      repair.lines.push_back(line);
      repair.codes.push_back(from);
    };
    for (const std::string& line : known.lines) add(line, formatted("snapshot {}", known.snapshot));
    for (const std::string& line : admin::salvaged_lines(m_view)) add(line, "text");
    std::size_t added = 0;
    static_cast<void>(admin::with_restored_lines(m_view, repair.lines, added));
    if (added == 0) return false;
    m_plan.repairs.push_back(std::move(repair));
    return true;
  }

  /// Beside damaged lines, an orphan with a number as its name is a document that lost its name.
  /// The damaged lines and the orphans both stay: without the damage nothing would show the loss.
  void note_lost_names(const std::vector<Finding>& findings) {
    const auto is_damage = [](const Finding& each) { return each.code == Code::kMalformedLine; };
    const auto is_nameless = [](const Finding& each) {
      return each.code == Code::kFileWithoutLine && is_number(each.name);
    };
    const auto count = std::count_if(findings.begin(), findings.end(), is_nameless);
    m_has_lost_names =
        !m_is_restored && count != 0 && std::any_of(findings.begin(), findings.end(), is_damage);
    if (!m_has_lost_names) return;
    const std::string what =
        formatted("{}: {} files whose names may have been in damaged lines of the index",
                  shown(relative(findings.front().folder)), count);
    m_has_lost_names = is_spared(what);
  }

  /// Whether no repair takes files or names from a folder. Notes which ones.
  bool is_spared(const std::string& what) {
    const bool is_spared = m_emptying == Emptying::kSpared;
    if (is_spared) m_plan.spared.push_back(what);
    if (!is_spared) m_plan.costs.push_back(what + "; no program finds them until 'undo'");
    return is_spared;
  }

  /// Whether a finding is not repaired because it may show a lost name.
  bool is_kept(const Finding& finding) const {
    return m_has_lost_names &&
           (finding.code == Code::kMalformedLine ||
            (finding.code == Code::kFileWithoutLine && is_number(finding.name)));
  }

  /// Whether there are orphans: only these can get a name back.
  bool has_lost_names() const {
    admin::IndexLint lint(m_view);
    for ([[maybe_unused]] const admin::LintedLine& line : lint) {
    }
    for (std::uint32_t at = 0; at < m_view.names().size(); ++at) {
      const admin::Name& name = m_view.names()[at];
      if (is_data(name) && !lint.is_claimed(at) && !admin::is_unfinished(name.text)) return true;
    }
    return false;
  }

  static bool is_data(const admin::Name& name) {
    return name.kind == sys::Kind::kFile && !index_format::is_index_file(name.text);
  }

  /// Whether a repair moves a file that can be a document.
  static bool takes_document(const Repair& repair) {
    return repair.kind == RepairKind::kQuarantine && !repair.is_folder &&
           repair.code != code_name(Code::kUnfinishedFile);
  }

  /// Without --force no plan removes most of the files or names of a folder. @param before the
  /// index of the folder's first repair.
  void spare_folder(const std::string& path, std::size_t before,
                    const std::vector<const Finding*>& done) {
    const auto files = std::ranges::count_if(m_view.names(), is_data);
    const auto planned = std::span(m_plan.repairs).subspan(before);
    const auto moved = std::ranges::count_if(planned, takes_document);
    std::ptrdiff_t names = 0;
    for (const Repair& repair : planned) {
      if (repair.kind == RepairKind::kRemoveLines)
        names += std::ranges::count(repair.codes, admin::name_of(admin::Verdict::kNoFile));
    }
    auto all_names = names;
    for (const admin::LintedLine& line : admin::IndexLint(m_view))
      all_names += line.verdict == admin::Verdict::kEntry ? 1 : 0;
    if (2 * moved <= files && 2 * names <= all_names) return;
    const std::string what = formatted(
        "{}: {} of {} files would move to the quarantine, and {} of {} names would leave the index",
        shown(relative(path)), moved, files, names, all_names);
    if (!is_spared(what)) return;
    const auto takes = [](const Repair& repair) {
      return repair.kind == RepairKind::kRemoveLines || takes_document(repair);
    };
    m_plan.repairs.erase(
        std::remove_if(m_plan.repairs.begin() + static_cast<std::ptrdiff_t>(before),
                       m_plan.repairs.end(), takes),
        m_plan.repairs.end());
    for (const Finding* const finding : done) {
      const bool was_to_be_taken =
          is_about_lines(finding->code) || finding->code == Code::kFileWithoutLine;
      if (was_to_be_taken) leave(*finding, kNeedsForce);
    }
  }

  void plan_lines() {
    Repair repair;
    repair.path = relative(m_view.path_of(index_format::kIndexFile));
    for (const auto& [number, line] : admin::bad_lines(m_view)) {
      const bool has_zeros = line.text.find('\0') != std::string::npos;
      const Code code = has_zeros ? Code::kMalformedLine : code_of(line.verdict);
      if (!wanted(code) || (m_has_lost_names && code == Code::kMalformedLine)) continue;
      if (repair.code.empty()) repair.code = code_name(code);
      repair.lines.push_back(line.text);
      repair.codes.emplace_back(admin::name_of(line.verdict));
      m_planned_lines.insert(number);
    }
    if (!repair.lines.empty()) m_plan.repairs.push_back(std::move(repair));
  }

  bool plan(const Finding& finding) {
    // Restored names can belong to the orphans and dangling key lines that were found.
    const bool is_counter =
        finding.code == Code::kCounterBehind || finding.code == Code::kCounterUnreadable;
    if ((m_is_restored && !is_counter) || is_kept(finding)) return false;
    switch (finding.code) {
      case Code::kFileWithoutLine:
      case Code::kPartsWithoutDocument:
      case Code::kUnfinishedFile: return plan_move(finding);
      case Code::kDanglingKeyLine:
      case Code::kDanglingCategoryLine: return plan_key_line(finding);
      case Code::kCounterBehind:
      case Code::kCounterUnreadable: return plan_counter(finding);
      default: return false;
    }
  }

  bool plan_move(const Finding& finding) {
    const std::string path = m_view.path_of(finding.name);
    const sys::Info info = sys::describe(path);
    const bool is_folder = info.kind == sys::Kind::kFolder;
    // If the index has lost its names, every file is an orphan. Names are restored first.
    if (why_not_movable(m_view, path, is_folder) != nullptr) return false;
    if (!m_index_stays.empty()) {
      m_remedy = m_index_stays;
      return false;
    }
    if (!can_repair(path, m_view.folder().path)) return false;
    Repair& repair = add(RepairKind::kQuarantine, finding.code, path);
    repair.is_folder = is_folder;
    repair.bytes = info.size;
    repair.modified = info.modify_time;
    return true;
  }

  bool plan_key_line(const Finding& finding) {
    const std::string path = m_view.path_of(finding.name);
    std::string text;
    if (!sys::read_file(path, m_context.locking(), text).ok()) return false;
    const std::string line(admin::key_line(text, finding.line));
    if (line.empty() || !admin::is_dangling(m_view, line) || !can_repair(path, path)) return false;
    const bool is_same = !m_plan.repairs.empty() &&
                         m_plan.repairs.back().kind == RepairKind::kRemoveKeyLines &&
                         m_plan.repairs.back().path == relative(path);
    if (!is_same) add(RepairKind::kRemoveKeyLines, finding.code, path);
    m_plan.repairs.back().lines.push_back(line);
    return true;
  }

  bool plan_counter(const Finding& finding) {
    const std::string path = m_view.path_of(index_format::kCounterFile);
    const bool is_missing = sys::describe(path).kind == sys::Kind::kMissing;
    if (!can_repair(path, is_missing ? m_view.folder().path : path)) return false;
    add(RepairKind::kSetCounter, finding.code, path).value = admin::highest_name(m_view);
    return true;
  }

  Repair& add(RepairKind kind, Code code, const std::string& path) {
    Repair& repair = m_plan.repairs.emplace_back();
    repair.kind = kind;
    repair.code = code_name(code);
    repair.path = relative(path);
    return repair;
  }

  /// @param remedy empty for that of the finding's kind.
  void leave(const Finding& finding, std::string_view remedy) {
    const admin::FindingKind& kind = admin::kind_of(finding.code);
    m_plan.left.push_back({{"code", kind.name},
                           {"path", relative(place_of(finding))},
                           {"detail", finding.detail},
                           {"remedy", remedy.empty() ? kind.remedy : remedy}});
  }

  Context& m_context;
  std::set<std::string> m_only;
  RepairPlan m_plan;
  admin::FolderView m_view;
  std::set<std::size_t> m_planned_lines;
  Emptying m_emptying;
  SavedNames m_saved;
  std::string m_index_stays;  ///< of the folder, see why_index_stays()
  std::string m_remedy;       ///< for the finding, if it is not planned; can be empty
  bool m_is_restored = false;
  bool m_has_lost_names = false;
};

}  // namespace

std::string_view name_of(RepairKind kind) { return kKinds[static_cast<std::size_t>(kind)]; }

Json fields_of(const Repair& repair) {
  Json fields = {{"repair", name_of(repair.kind)}, {"code", repair.code}, {"path", repair.path}};
  if (!repair.lines.empty()) {
    fields["lines"] = Json::array();
    for (std::size_t i = 0; i < repair.lines.size(); ++i) {
      Json& line = fields["lines"].push_back({{"text", repair.lines[i]}});
      if (i < repair.codes.size()) line["why"] = repair.codes[i];
    }
  }
  if (repair.kind == RepairKind::kSetCounter) fields["value"] = repair.value;
  if (repair.kind == RepairKind::kQuarantine) {
    fields["kind"] = repair.is_folder ? "folder" : "file";
    fields["bytes"] = repair.bytes;
    fields["modified"] = repair.modified;
  }
  return fields;
}

Repair repair_of(const nlohmann::json& object) {
  Repair repair;
  const auto kind = value_named<RepairKind>(kKinds, object.value("repair", ""));
  if (!kind) reject("'{}' is not a repair", shown(object.value("repair", "")));
  repair.kind = *kind;
  repair.code = object.value("code", "");
  repair.path = name_in(object, "path");
  if (object.contains("lines")) {
    for (const Parsed& line : items_of(object.at("lines"))) {
      repair.lines.push_back(name_in(line, "text"));
      repair.codes.push_back(line.value("why", ""));
    }
  }
  repair.value = object.value("value", "");
  repair.is_folder = object.value("kind", "file") == "folder";
  repair.bytes = object.value("bytes", std::uint64_t{0});
  repair.modified = object.value("modified", std::int64_t{0});
  const std::string_view file = std::string_view(repair.path).substr(repair.path.rfind('/') + 1);
  const bool is_of_index =
      repair.kind == RepairKind::kRemoveLines || repair.kind == RepairKind::kRestoreLines;
  const bool fits = is_of_index                              ? file == index_format::kIndexFile
                    : repair.kind == RepairKind::kSetCounter ? file == index_format::kCounterFile
                                                             : !index_format::is_index_file(file);
  if (!fits) reject("{} is not a target for '{}'", shown(repair.path), name_of(repair.kind));
  const bool is_number = index_format::is_generated_name(repair.value) && repair.value.size() <= 10;
  if (repair.kind == RepairKind::kSetCounter && !is_number)
    reject("'{}' is not a value of a counter", shown(repair.value));
  return repair;
}

std::string text_of(const RepairPlan& plan) {
  Json object = {{"schema", kSchema},
                 {"storage", plan.storage},
                 {"time", plan.time},
                 {"repairs", Json::array()}};
  for (const Repair& repair : plan.repairs) object["repairs"].push_back(fields_of(repair));
  object["costs"] = plan.costs;
  object["left"] = Json::array();
  for (const Json& left : plan.left) object["left"].push_back(left);
  return object.dump(2) + "\n";
}

RepairPlan read_plan(Context& context, const std::string& text) {
  try {
    // A text that is not JSON gets a message of this program, not of the JSON library.
    const Parsed object = Parsed::parse(text, nullptr, false);
    if (!object.is_object() || object.value("schema", "") != kSchema)
      reject("it does not contain \"schema\": \"{}\"", kSchema);
    RepairPlan plan;
    plan.storage = name_in(object, "storage");
    if (plan.storage != context.tree().storage) reject("it is for {}", shown(plan.storage));
    if (object.contains("costs")) {
      for (const Parsed& cost : items_of(object.at("costs")))
        plan.costs.push_back(shown(cost.get<std::string>()));
    }
    for (const Parsed& each : items_of(object.at("repairs"))) {
      plan.repairs.push_back(repair_of(each));
      path_in_tree(context, plan.repairs.back().path);
    }
    return plan;
  } catch (const Parsed::exception&) {
    reject("its lists are not in the form that 'repair --plan' writes");
  }
}

std::string name_in(const nlohmann::json& object, const std::string& key) {
  if (object.contains(key + "_hex")) {
    const std::string digits = object.at(key + "_hex").get<std::string>();
    if (auto bytes = from_hex(digits)) return *std::move(bytes);
    reject("'{}' are not hexadecimal digits", shown(digits));
  }
  if (!object.contains(key)) reject("\"{}\" is missing", key);
  return object.at(key).get<std::string>();
}

std::string path_in_tree(Context& context, const std::string& path) {
  if (const char* const why = why_no_target(path)) reject("{} {}", shown(path), why);
  std::string full = context.tree().storage;
  for (const std::string_view part : split(path, '/')) full = sys::join(full, part);
  check_no_link(context, full);
  return full;
}

RepairPlan make_plan(Context& context, const std::vector<std::string>& only, Emptying emptying) {
  return Planning(context, only, emptying).run();
}

}  // namespace stgctl
