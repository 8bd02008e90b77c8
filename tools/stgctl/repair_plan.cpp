#include "tools/stgctl/repair_plan.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>

#include "tools/admin/folder_view.h"
#include "tools/admin/name_snapshot.h"
#include "tools/admin/repair_text.h"
#include "tools/stgctl/exit_codes.h"
#include "tools/stgctl/progress.h"
#include "tools/stgctl/target.h"
#include "tools/stgctl/text.h"

namespace stgctl {

namespace {

using admin::Code;
using admin::Finding;

constexpr const char* kSchema = "stgctl.repair-plan/1";
constexpr std::array<std::string_view, 4> kKinds = {"remove-lines", "remove-key-lines",
                                                    "set-counter", "quarantine"};

/// The code that check gives a line of this verdict.
Code code_of(admin::Verdict verdict) {
  if (verdict == admin::Verdict::kNoFile) return Code::kLineWithoutFile;
  return verdict == admin::Verdict::kDuplicateKey ? Code::kDuplicateKey : Code::kMalformedLine;
}

bool is_about_lines(Code code) {
  return code == Code::kLineWithoutFile || code == Code::kDuplicateKey ||
         code == Code::kMalformedLine;
}

std::string code_name(Code code) { return std::string(admin::kind_of(code).name); }

/// Turns the findings of a check into repairs, folder after folder.
class Planning {
 public:
  Planning(Context& context, const std::vector<std::string>& only)
      : m_context(context), m_only(only.begin(), only.end()) {}

  RepairPlan run() {
    const admin::Tree& tree = m_context.tree();
    m_plan.storage = tree.storage;
    m_plan.time = os::now();
    admin::CheckOptions asked;
    asked.scope = m_context.scope();
    asked.locking = m_context.locking();
    asked.stop = &Context::interrupt_flag();
    std::map<std::string, std::vector<Finding>> by_folder;
    {
      Progress progress(m_context.out(), m_context.options().progress, "checking", 0);
      asked.on_folder = [&](const admin::DocumentFolder& folder) {
        progress.advance(1, folder.path);
      };
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
    if (m_view.index_state() == admin::IndexState::kRead) plan_lines();
    for (const Finding& finding : findings) {
      const bool is_planned =
          is_about_lines(finding.code) && m_planned_lines.contains(finding.line);
      if (!is_planned && (!wanted(finding.code) || !plan(finding))) leave(finding);
    }
  }

  void plan_lines() {
    Repair repair;
    repair.path = relative(m_view.path_of(index_format::kIndexFile));
    for (const auto& [number, line] : admin::bad_lines(m_view)) {
      const Code code = code_of(line.verdict);
      if (!wanted(code)) continue;
      if (repair.code.empty()) repair.code = code_name(code);
      repair.lines.push_back(line.text);
      repair.codes.emplace_back(admin::name_of(line.verdict));
      m_planned_lines.insert(number);
    }
    if (!repair.lines.empty()) m_plan.repairs.push_back(std::move(repair));
  }

  bool plan(const Finding& finding) {
    switch (finding.code) {
      case Code::kFileWithoutLine:
      case Code::kPartsWithoutDocument:
        return plan_move(finding);
      case Code::kDanglingKeyLine:
      case Code::kDanglingCategoryLine:
        return plan_key_line(finding);
      case Code::kCounterBehind:
      case Code::kCounterUnreadable:
        return plan_counter(finding);
      default:
        return false;
    }
  }

  bool plan_move(const Finding& finding) {
    const bool is_folder = finding.code == Code::kPartsWithoutDocument;
    // Where the names are lost, every file is without a line: names come first.
    const bool is_still = is_folder ? admin::is_orphaned_parts(m_view, finding.name)
                                    : admin::is_unclaimed_file(m_view, finding.name);
    if (!is_still) return false;
    const std::string path = m_view.path_of(finding.name);
    const admin::sys::Info info = admin::sys::describe(path);
    Repair repair;
    repair.kind = RepairKind::kQuarantine;
    repair.code = code_name(finding.code);
    repair.path = relative(path);
    repair.is_folder = is_folder;
    repair.bytes = info.size;
    repair.modified = info.modify_time;
    m_plan.repairs.push_back(std::move(repair));
    return true;
  }

  bool plan_key_line(const Finding& finding) {
    const std::string path = m_view.path_of(finding.name);
    std::string text;
    if (!admin::sys::read_file(path, m_context.locking(), text).ok()) return false;
    const std::string line(admin::key_line(text, finding.line));
    if (line.empty() || !admin::is_dangling(m_view, line)) return false;
    Repair repair;
    repair.kind = RepairKind::kRemoveKeyLines;
    repair.code = code_name(finding.code);
    repair.path = relative(path);
    const bool is_same = !m_plan.repairs.empty() && m_plan.repairs.back().kind == repair.kind &&
                         m_plan.repairs.back().path == repair.path;
    if (!is_same) m_plan.repairs.push_back(std::move(repair));
    m_plan.repairs.back().lines.push_back(line);
    return true;
  }

  bool plan_counter(const Finding& finding) {
    Repair repair;
    repair.kind = RepairKind::kSetCounter;
    repair.code = code_name(finding.code);
    repair.path = relative(m_view.path_of(index_format::kCounterFile));
    repair.value = admin::highest_name(m_view);
    m_plan.repairs.push_back(std::move(repair));
    return true;
  }

  void leave(const Finding& finding) {
    const std::string path =
        finding.name.empty() ? finding.folder : admin::sys::join(finding.folder, finding.name);
    const admin::FindingKind& kind = admin::kind_of(finding.code);
    m_plan.left.push_back(
        {std::string(kind.name), relative(path), finding.detail, std::string(kind.remedy)});
  }

  Context& m_context;
  std::set<std::string> m_only;
  RepairPlan m_plan;
  admin::FolderView m_view;
  std::set<std::size_t> m_planned_lines;
};

[[noreturn]] void refuse(const std::string& what) {
  throw Failure(Exit::kRefused,
                "the plan is refused: " + what + "; 'stgctl repair --plan FILE' makes one");
}

Json names_to_json(const std::vector<std::string>& names) {
  Json list = Json::array();
  for (const std::string& name : names) {
    Json item;
    put_name(item, "text", name);
    list.push_back(std::move(item));
  }
  return list;
}

std::string from_hex(const std::string& digits) {
  std::string bytes;
  if (digits.size() % 2 != 0) refuse("'" + shown(digits) + "' are no hexadecimal digits");
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    const auto value = [&](char c) {
      const std::size_t digit = std::string_view("0123456789abcdef").find(c);
      if (digit == std::string_view::npos)
        refuse("'" + shown(digits) + "' are no hexadecimal digits");
      return digit;
    };
    bytes += static_cast<char>(value(digits[i]) * 16 + value(digits[i + 1]));
  }
  return bytes;
}

}  // namespace

std::string_view name_of(RepairKind kind) { return kKinds[static_cast<std::size_t>(kind)]; }

std::optional<RepairKind> repair_named(std::string_view name) {
  const auto found = std::find(kKinds.begin(), kKinds.end(), name);
  if (found == kKinds.end()) return std::nullopt;
  return static_cast<RepairKind>(found - kKinds.begin());
}

RepairPlan make_plan(Context& context, const std::vector<std::string>& only) {
  return Planning(context, only).run();
}

Json fields_of(const Repair& repair) {
  Json fields;
  fields["repair"] = name_of(repair.kind);
  fields["code"] = repair.code;
  put_name(fields, "path", repair.path);
  if (!repair.lines.empty()) {
    fields["lines"] = names_to_json(repair.lines);
    for (std::size_t i = 0; i < repair.codes.size() && i < repair.lines.size(); ++i)
      fields["lines"][i]["why"] = repair.codes[i];
  }
  if (repair.kind == RepairKind::kSetCounter) fields["value"] = repair.value;
  if (repair.kind == RepairKind::kQuarantine) {
    fields["kind"] = repair.is_folder ? "folder" : "file";
    fields["bytes"] = repair.bytes;
    fields["modified"] = repair.modified;
  }
  return fields;
}

Repair repair_of(const Json& object) {
  Repair repair;
  const auto kind = repair_named(object.value("repair", ""));
  if (!kind) refuse(formatted("'{}' is no repair", shown(object.value("repair", ""))));
  repair.kind = *kind;
  repair.code = object.value("code", "");
  repair.path = name_in(object, "path");
  if (const Json* const lines = object.find("lines")) {
    for (const Json& line : lines->items()) {
      repair.lines.push_back(name_in(line, "text"));
      repair.codes.push_back(line.value("why", ""));
    }
  }
  repair.value = object.value("value", "");
  repair.is_folder = object.value("kind", "file") == "folder";
  repair.bytes = object.value("bytes", std::uint64_t{0});
  repair.modified = object.value("modified", std::int64_t{0});
  const std::string_view file = std::string_view(repair.path).substr(repair.path.rfind('/') + 1);
  const bool fits = repair.kind == RepairKind::kRemoveLines  ? file == index_format::kIndexFile
                    : repair.kind == RepairKind::kSetCounter ? file == index_format::kCounterFile
                                                             : !index_format::is_index_file(file);
  if (!fits) refuse(formatted("{} is nothing for '{}'", shown(repair.path), name_of(repair.kind)));
  const bool is_number = index_format::is_generated_name(repair.value) && repair.value.size() <= 10;
  if (repair.kind == RepairKind::kSetCounter && !is_number)
    refuse(formatted("'{}' is no value of a counter", shown(repair.value)));
  return repair;
}

std::string text_of(const RepairPlan& plan) {
  Json object;
  object["schema"] = kSchema;
  put_name(object, "storage", plan.storage);
  object["time"] = plan.time;
  object["repairs"] = Json::array();
  for (const Repair& repair : plan.repairs) object["repairs"].push_back(fields_of(repair));
  object["left"] = Json::array();
  for (const LeftAlone& left : plan.left) {
    Json item = {{"code", left.code}};
    put_name(item, "path", left.path);
    put_name(item, "detail", left.detail);
    item["remedy"] = left.remedy;
    object["left"].push_back(std::move(item));
  }
  return object.dump(2) + "\n";
}

RepairPlan read_plan(Context& context, const std::string& text) {
  try {
    const Json object = Json::parse(text);
    if (!object.is_object() || object.value("schema", "") != kSchema)
      refuse(formatted("it does not say \"schema\": \"{}\"", kSchema));
    RepairPlan plan;
    plan.storage = name_in(object, "storage");
    if (plan.storage != context.tree().storage)
      refuse(formatted("it is for {}", shown(plan.storage)));
    for (const Json& each : object.at("repairs").items()) {
      plan.repairs.push_back(repair_of(each));
      path_in_tree(context, plan.repairs.back().path);
    }
    return plan;
  } catch (const JsonError& error) {
    refuse(shown(std::string_view(error.what())));
  }
}

std::string name_in(const Json& object, const std::string& key) {
  if (const Json* const hex = object.find(key + "_hex")) return from_hex(hex->get<std::string>());
  const Json* const text = object.find(key);
  if (text == nullptr) refuse(formatted("\"{}\" is missing", key));
  return text->get<std::string>();
}

std::string path_in_tree(Context& context, const std::string& path) {
  std::string full = context.tree().storage;
  std::size_t parts = 0;
  for (std::string_view rest = path;;) {
    const std::size_t end = std::min(rest.find('/'), rest.size());
    const std::string_view part = rest.substr(0, end);
    const bool is_index = index_format::is_index_file(part);
    if ((!is_index && admin::why_not_safe(part) != nullptr) || (is_index && end != rest.size()) ||
        (parts == 0 && !admin::area_named(part)))
      refuse(formatted("{} is no path in the tree", shown(path)));
    full = admin::sys::join(full, part);
    ++parts;
    if (end == rest.size()) break;
    rest.remove_prefix(end + 1);
  }
  if (parts < 2) refuse(formatted("{} is no file of a document folder", shown(path)));
  check_no_link(context, full);
  return full;
}

}  // namespace stgctl
