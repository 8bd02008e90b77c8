#include "client/admin/lookup.h"

#include <string_view>

#include "client/admin/explain_steps.h"
#include "storage/key_text.h"

namespace admin {

Lookup look_up(const Tree& tree, const Request& request, const sys::Locking& locking) {
  Explanation told;
  Steps steps(tree, request, locking, told);
  Lookup result;
  result.found = steps.entry_is_named() && steps.folders(MissingFolder::kEndsIt) &&
                 steps.lookup(request.timestamp);
  result.lock_missed = told.lock_missed;
  result.folder = steps.folder();
  if (result.found) {
    result.file = steps.file();
    result.path = steps.path();
    for (const Step& step : told.steps) {
      if (step.name == "plain-name" && step.answer == Answer::kYes) result.by_plain_name = true;
    }
  } else if (const Step* no = told.first_no()) {
    result.why = no->text;
  }
  return result;
}

os::Status read_key_file(const std::string& path, const sys::Locking& locking, KeyFile& file) {
  std::string text;
  const os::Status status = sys::read_file(path, locking, text);
  if (!status.ok()) return status;
  key_text::Lines lines(text);
  std::string_view line;
  while (lines.next(line)) {
    if (const auto pair = key_text::split(line, key_text::Separator::kFirst)) {
      file.lines.emplace_back(pair->name, pair->value);
    } else if (!line.empty()) {
      ++file.passed_over;
    }
  }
  return {};
}

std::string master_profile(const std::string& config_folder) {
  for (const char* name : {"profile.txt", "master.txt"}) {
    const std::string path = sys::join(config_folder, name);
    if (sys::describe(path).kind != sys::Kind::kMissing) return path;
  }
  return {};
}

}  // namespace admin
