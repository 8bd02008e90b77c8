#include "client/admin/shared_probe.h"
#include "client/stgctl/command.h"
#include "client/stgctl/new_file.h"

namespace stgctl {

namespace {

using admin::Holds;
using admin::SharedCheck;

constexpr const char* kSharedSchema = "stgctl.doctor-shared/1";

/// Refuses a test in the tree. There may be no tree, or none named.
void refuse_the_tree(Context& context, const std::string& folder) {
  try {
    static_cast<void>(context.storage());
  } catch (const Failure&) {
    return;
  }
  if (is_in_tree(context, folder))
    refuse(
        "this folder is in the tree, which the test must not change; name a folder outside the "
        "tree");
}

std::size_t count_of(const admin::SharedTrial& trial, Holds holds) {
  return static_cast<std::size_t>(
      std::count_if(trial.checks.begin(), trial.checks.end(),
                    [&](const SharedCheck& each) { return each.holds == holds; }));
}

void tell_as_json(Context& context, const admin::SharedTrial& trial) {
  for (const SharedCheck& each : trial.checks) {
    context.out().json_line(kSharedSchema, {{"record", "check"},
                                            {"check", each.code},
                                            {"holds", admin::name_of(each.holds)},
                                            {"detail", shown(each.detail)},
                                            {"mend", each.mend}});
  }
  context.out().json_line(kSharedSchema, {{"record", "summary"},
                                          {"folder", trial.folder},
                                          {"peer", trial.peer},
                                          {"file_system", trial.file_system},
                                          {"holds", count_of(trial, Holds::kYes)},
                                          {"missing", count_of(trial, Holds::kNo)},
                                          {"not_tried", count_of(trial, Holds::kNotTried)}});
}

void tell_as_text(Context& context, const admin::SharedTrial& trial) {
  Output& out = context.out();
  out.print("{:<24}{} ({})\n", "folder", shown(trial.folder), trial.file_system);
  if (!trial.peer.empty()) out.print("{:<24}{}\n", "peer", shown(trial.peer));
  for (const SharedCheck& each : trial.checks) {
    const bool is_bad = each.holds == Holds::kNo;
    const std::string word(is_bad ? "MISSING" : each.holds == Holds::kYes ? "yes" : "not tested");
    out.print("{:<24}{:<11}{}\n", each.code, is_bad ? out.styled(Style::kRed, word) + "    " : word,
              shown(each.detail));
    if (is_bad) out.print("{:<24}{:<11}{}\n", "", "remedy", each.mend);
  }
}

/// doctor --shared: tests whether a file system that hosts share can contain a tree. @param peer
/// the same folder through another mount, or empty.
/// @throws Failure kRefused for a folder in the tree.
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
        "the properties between two hosts were not tested; mount the folder twice, and name the "
        "second mount by --peer");
  return count_of(trial, Holds::kNo) == 0 ? Exit::kDone : Exit::kProblemsFound;
}

struct Options : Arguments {
  TextOption try_in{
      *this, "--try-locks", "DIR",
      "Test locks in this folder, with a temporary file (the folder for temporary files)"};
  TextOption shared{*this, "--shared", "DIR",
                    "Test instead whether hosts can share the file system of this folder, which "
                    "need not be a tree",
                    excludes("--try-locks")};
  TextOption peer{
      *this, "--peer", "DIR",
      "With --shared: the same folder through another mount, which represents another host",
      needs("--shared")};
};

/// The results of the tests, and their warnings.
struct Diagnosis {
  sys::FileSystem system;
  admin::LockTrial trial;
  std::string trial_file_system;
  bool locks_belong_to_handles = true;
  std::vector<std::string> warnings;
};

Diagnosis diagnose(Context& context, const Options& options) {
  const admin::Tree& tree = context.tree();
  Diagnosis found;
  found.system = sys::file_system_of(tree.storage);
  const std::string named =
      options.try_in.empty() ? admin::temporary_folder() : std::string(options.try_in);
  if (named.empty())
    fail("the folder for temporary files is not a folder; name another folder by --try-locks");
  const std::string folder = sys::absolute(named);
  refuse_the_tree(context, folder);
  found.trial = admin::try_locks(folder);
  found.trial_file_system = sys::file_system_of(folder).type;
  found.locks_belong_to_handles = os::locks_belong_to_handles(tree.storage);
  const auto warn = [&](const char* text) { found.warnings.emplace_back(text); };
  if (found.trial.proof == admin::LockProof::kDoNotExclude)
    warn("locks do not exclude each other: processes will overwrite each other's changes");
  if (!found.locks_belong_to_handles)
    warn(
        "a mount of Linux's SMB client: handles share locks, so programs overwrite each other's "
        "changes; docs/network-shares.md says what works");
  if (found.trial.proof == admin::LockProof::kFailed) warn("locks could not be tested");
  if (found.trial_file_system != found.system.type)
    warn(
        "locks were tested on another kind of file system; name a folder beside the tree by "
        "--try-locks");
  if (found.system.is_network)
    warn("a network file system: locks may work only between processes of one machine");
  if (found.system.is_read_only) warn("the file system is mounted read-only");
  if (sys::narrow_encoding() != "UTF-8")
    warn(
        "the code page of this system is not UTF-8: a tree shared with other systems needs ASCII "
        "names");
  return found;
}

Exit run_doctor(Context& context, const Options& options) {
  if (!options.shared.empty()) return run_doctor_shared(context, options.shared, options.peer);
  const admin::Tree& tree = context.tree();
  const Diagnosis found = diagnose(context, options);
  if (context.out().json()) {
    Json fields = {{"version", VU_STGCTL_VERSION},
                   {"system", sys::system_name()},
                   {"encoding", sys::narrow_encoding()},
                   {"storage", tree.storage},
                   {"layout", admin::name_of(tree.layout)},
                   {"file_system", found.system.type},
                   {"network", found.system.is_network},
                   {"read_only", found.system.is_read_only},
                   {"total_bytes", found.system.total_bytes},
                   {"free_bytes", found.system.free_bytes},
                   {"path_limit", sys::kPathLimit},
                   {"locks", admin::name_of(found.trial.proof)},
                   {"locks_tried_in", found.trial.folder},
                   {"locks_belong_to_handles", found.locks_belong_to_handles},
                   {"locks_tried_on", found.trial_file_system},
                   {"locks_detail", shown(found.trial.detail)},
                   {"warnings", found.warnings}};
    context.out().json_line("stgctl.doctor/1", fields);
  } else {
    const auto line = [&](const char* what, const std::string& value) {
      context.out().print("{:<14}{}\n", what, value);
    };
    line("stgctl", VU_STGCTL_VERSION);
    line("system", sys::system_name());
    line("names", sys::narrow_encoding());
    line("tree", formatted("{} ({})", shown(tree.storage), admin::name_of(tree.layout)));
    line("file system",
         formatted("{}, {} of {} free", found.system.type, format_bytes(found.system.free_bytes),
                   format_bytes(found.system.total_bytes)));
    line("longest path", formatted("{} bytes", sys::kPathLimit));
    line("locks",
         formatted("{}: {} (tested in {}, {})", admin::name_of(found.trial.proof),
                   shown(found.trial.detail), shown(found.trial.folder), found.trial_file_system));
    for (const std::string& warning : found.warnings) context.out().warning(warning);
  }
  const bool good = found.trial.proof == admin::LockProof::kExclude &&
                    found.locks_belong_to_handles && !found.system.is_read_only;
  return good ? Exit::kDone : Exit::kProblemsFound;
}

}  // namespace

Commands doctor_command() {
  return {{"doctor", Group::kLook, Effect::kLooks,
           "Show the system below the tree, and test its locks", run_doctor,
           "Shows versions, code page and file system. The exit code is 4 if something is\n"
           "wrong. --shared tests each property that hosts need from a shared file system,\n"
           "and names the setting that adds a missing one."}};
}

}  // namespace stgctl
