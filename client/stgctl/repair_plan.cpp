#include "client/stgctl/repair_plan.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>

#include "client/admin/folder_view.h"
#include "client/admin/name_snapshot.h"
#include "client/admin/repair_text.h"
#include "client/stgctl/exit_codes.h"
#include "client/stgctl/progress.h"
#include "client/stgctl/target.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace {

constexpr const char* kSchema = "stgctl.repair-plan/1";
constexpr std::array<std::string_view, 5> kKinds = {"remove-lines", "remove-key-lines",
                                                    "set-counter", "quarantine", "restore-lines"};

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
  const bool is_of_index =
      repair.kind == RepairKind::kRemoveLines || repair.kind == RepairKind::kRestoreLines;
  const bool fits = is_of_index                              ? file == index_format::kIndexFile
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
  object["costs"] = Json::array();
  for (const std::string& cost : plan.costs) object["costs"].push_back(cost);
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
    // What is no JSON at all is told in words of our own.
    const Json object = Json::parse_or_null(text);
    if (!object.is_object() || object.value("schema", "") != kSchema)
      refuse(formatted("it does not say \"schema\": \"{}\"", kSchema));
    RepairPlan plan;
    plan.storage = name_in(object, "storage");
    if (plan.storage != context.tree().storage)
      refuse(formatted("it is for {}", shown(plan.storage)));
    if (const Json* const costs = object.find("costs")) {
      for (const Json& cost : costs->items()) plan.costs.push_back(shown(cost.get<std::string>()));
    }
    for (const Json& each : object.at("repairs").items()) {
      plan.repairs.push_back(repair_of(each));
      path_in_tree(context, plan.repairs.back().path);
    }
    return plan;
  } catch (const JsonError&) {
    refuse("its lists are not as 'repair --plan' writes them");
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
