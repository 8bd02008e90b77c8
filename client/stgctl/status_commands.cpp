// status, locks and doctor: a tree and the system below it.

#include <array>

#include "client/admin/shared_probe.h"
#include "client/stgctl/look.h"

namespace stgctl {

namespace {

std::string_view name_of(sys::Knowledge known) {
  constexpr std::array<std::string_view, 3> kNames = {"complete", "partial", "none"};
  return kNames[static_cast<std::size_t>(known)];
}

Exit run_status(Context& context) {
  const admin::Tree& tree = context.tree();
  const admin::TreeStatus status = admin::status_of(tree);
  const sys::FileSystem system = sys::file_system_of(tree.storage);
  std::vector<sys::HeldLock> locks;
  const sys::Knowledge known = sys::find_locks(tree.storage, locks);
  if (context.out().json()) {
    Json fields = {{"storage", tree.storage},
                   {"layout", admin::name_of(tree.layout)},
                   {"layout_guessed", tree.layout_was_guessed},
                   {"areas", Json::array()}};
    for (const admin::Area area : admin::kAreas) {
      const admin::AreaStatus& each = status.areas[static_cast<std::size_t>(area)];
      fields["areas"].push_back({{"area", admin::name_of(area)},
                                 {"exists", each.exists},
                                 {"owners", each.owners},
                                 {"folders", each.folders},
                                 {"indexes", each.with_index},
                                 {"strays", each.strays}});
    }
    fields["failures"] = status.failures;
    fields["file_system"] = system.type;
    fields["free_bytes"] = system.free_bytes;
    fields["locks"] = locks.size();
    fields["locks_known"] = name_of(known);
    context.out().json_line("stgctl.status/1", fields);
  } else {
    context.out().print(
        "{}  {}{}\n", context.out().styled(Style::kBold, shown(tree.storage)),
        tree.layout == admin::Layout::kFlat ? "flat, without owners" : "with owners",
        tree.layout_was_guessed ? "" : " (--layout)");
    for (const admin::Area area : admin::kAreas) {
      const admin::AreaStatus& each = status.areas[static_cast<std::size_t>(area)];
      if (!each.exists) {
        context.out().print("  {:<8}missing\n", admin::name_of(area));
        continue;
      }
      context.out().print("  {:<8}{:>6} owners  {:>7} folders  {:>7} indexes{}\n",
                          admin::name_of(area), each.owners, each.folders, each.with_index,
                          each.strays == 0 ? "" : formatted("  {} strays", each.strays));
    }
    context.out().print("  {} of {} free on {}\n", format_bytes(system.free_bytes),
                        format_bytes(system.total_bytes), system.type);
    if (known != sys::Knowledge::kNone) context.out().print("  {} locks held\n", locks.size());
  }
  return status.failures == 0 ? Exit::kDone : Exit::kPartlyDone;
}

Exit run_locks(Context& context) {
  const admin::Tree& tree = context.tree();
  std::vector<sys::HeldLock> locks;
  const sys::Knowledge known = sys::find_locks(tree.storage, locks);
  for (const sys::HeldLock& lock : locks) {
    const char* const how = lock.is_exclusive ? "exclusive" : "shared";
    context.out().result("stgctl.locks/1",
                         {{"record", "lock"},
                          {"path", lock.path},
                          {"lock", how},
                          {"whole_file", lock.is_whole_file},
                          {"process", lock.process},
                          {"command", lock.command}},
                         "{:<9}  {:>8}  {:<16}  {}\n", how, lock.process, shown(lock.command),
                         shown(lock.path));
  }
  if (context.out().json())
    context.out().json_line(
        "stgctl.locks/1",
        {{"record", "summary"}, {"locks", locks.size()}, {"known", name_of(known)}});
  if (known == sys::Knowledge::kNone)
    context.out().warning("this system does not report which process holds a lock");
  if (known == sys::Knowledge::kPartial)
    context.out().warning(
        "processes of other users could not be inspected; run it as an administrator");
  if (!context.out().json() && locks.empty() && known != sys::Knowledge::kNone)
    context.out().note("no process holds a lock");
  return Exit::kDone;
}

// ---- doctor ------------------------------------------------------------------------------------

using admin::Holds;
using admin::SharedCheck;

constexpr const char* kSharedSchema = "stgctl.doctor-shared/1";

/// Refuses a test in the tree. There may be no tree, or none named.
void refuse_the_tree(Context& context, const std::string& folder) {
  std::string storage;
  try {
    storage = context.storage();
  } catch (const Failure&) {
    return;
  }
  if (sys::join(folder, "").starts_with(sys::join(storage, "")))
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

struct DoctorOptions : Arguments {
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

Diagnosis diagnose(Context& context, const DoctorOptions& options) {
  const admin::Tree& tree = context.tree();
  Diagnosis found;
  found.system = sys::file_system_of(tree.storage);
  const std::string folder = sys::absolute(options.try_in.empty() ? admin::temporary_folder()
                                                                  : std::string(options.try_in));
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

Exit run_doctor(Context& context, const DoctorOptions& options) {
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
    line("longest path", std::to_string(sys::kPathLimit));
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

Commands status_commands() {
  return {{"status", Group::kLook, Effect::kLooks, "Show an overview of a tree", run_status,
           "Shows the areas with their owners, folders and indexes, the free space, and the\n"
           "number of locks. Reads no index."},
          {"locks", Group::kLook, Effect::kLooks, "Show which process holds which lock", run_locks,
           "Works on Linux, for the processes that you may inspect. Windows does not report it."},
          {"doctor", Group::kLook, Effect::kLooks,
           "Show the system below the tree, and test its locks", run_doctor,
           "Shows versions, code page and file system. The exit code is 4 if something is\n"
           "wrong. --shared tests each property that hosts need from a shared file system,\n"
           "and names the setting that adds a missing one."}};
}

}  // namespace stgctl
