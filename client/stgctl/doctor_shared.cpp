#include "client/stgctl/doctor_shared.h"

#include <algorithm>

#include "client/admin/shared_probe.h"
#include "client/stgctl/context.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace {

namespace sys = admin::sys;
using admin::Holds;
using admin::SharedCheck;

constexpr const char* kSchema = "stgctl.doctor-shared/1";

/// Nothing is tried in a tree. There may be none, or none that is named.
void refuse_the_tree(Context& context, const std::string& folder) {
  std::string storage;
  try {
    storage = context.storage();
  } catch (const Failure&) {
    return;
  }
  if (sys::join(folder, "").starts_with(sys::join(storage, "")))
    throw Failure(Exit::kRefused,
                  "the trial leaves no trace in the tree; name a folder outside of it");
}

std::size_t count_of(const admin::SharedTrial& trial, Holds holds) {
  return static_cast<std::size_t>(
      std::count_if(trial.checks.begin(), trial.checks.end(),
                    [&](const SharedCheck& each) { return each.holds == holds; }));
}

void tell_as_json(Context& context, const admin::SharedTrial& trial) {
  for (const SharedCheck& each : trial.checks) {
    Json fields;
    fields["record"] = "check";
    fields["check"] = each.code;
    fields["holds"] = admin::name_of(each.holds);
    fields["detail"] = shown(each.detail);
    fields["mend"] = each.mend;
    context.out().json_line(kSchema, fields);
  }
  Json fields;
  fields["record"] = "summary";
  put_name(fields, "folder", trial.folder);
  put_name(fields, "peer", trial.peer);
  fields["file_system"] = trial.file_system;
  fields["holds"] = count_of(trial, Holds::kYes);
  fields["missing"] = count_of(trial, Holds::kNo);
  fields["not_tried"] = count_of(trial, Holds::kNotTried);
  context.out().json_line(kSchema, fields);
}

void tell_as_text(Context& context, const admin::SharedTrial& trial) {
  Output& out = context.out();
  out.print("{:<24}{} ({})\n", "folder", shown(trial.folder), trial.file_system);
  if (!trial.peer.empty()) out.print("{:<24}{}\n", "peer", shown(trial.peer));
  for (const SharedCheck& each : trial.checks) {
    const bool is_bad = each.holds == Holds::kNo;
    const std::string word(is_bad ? "MISSING" : each.holds == Holds::kYes ? "yes" : "not tried");
    out.print("{:<24}{:<11}{}\n", each.code, is_bad ? out.styled(Style::kRed, word) + "    " : word,
              shown(each.detail));
    if (is_bad) out.print("{:<24}{:<11}{}\n", "", "to mend", each.mend);
  }
}

}  // namespace

Exit run_doctor_shared(Context& context, const std::string& folder, const std::string& peer) {
  const std::string where = sys::absolute(folder);
  refuse_the_tree(context, where);
  const admin::SharedTrial trial =
      admin::try_shared(where, peer.empty() ? peer : sys::absolute(peer));
  if (context.out().json()) {
    tell_as_json(context, trial);
  } else {
    tell_as_text(context, trial);
  }
  if (count_of(trial, Holds::kNotTried) != 0)
    context.out().warning(
        "what lies between two hosts was not tried; mount it twice, and name the other by --peer");
  return count_of(trial, Holds::kNo) == 0 ? Exit::kDone : Exit::kProblemsFound;
}

}  // namespace stgctl
