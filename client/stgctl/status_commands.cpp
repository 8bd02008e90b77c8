// status, locks and doctor: the tree from the outside, and what it stands on.

#include <memory>

#include "client/admin/doctor.h"
#include "client/stgctl/command.h"
#include "client/stgctl/doctor_shared.h"
#include "client/stgctl/look.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace {

namespace sys = admin::sys;

std::string_view name_of(sys::Knowledge known) {
  if (known == sys::Knowledge::kComplete) return "complete";
  return known == sys::Knowledge::kPartial ? "partial" : "none";
}

// ---- status ------------------------------------------------------------------------------------

Exit run_status(Context& context) {
  const admin::Tree& tree = context.tree();
  const admin::TreeStatus status = admin::status_of(tree);
  const sys::FileSystem system = sys::file_system_of(tree.storage);
  std::vector<sys::HeldLock> locks;
  const sys::Knowledge known = sys::find_locks(tree.storage, locks);
  if (context.out().json()) {
    Json fields;
    put_name(fields, "storage", tree.storage);
    fields["layout"] = admin::name_of(tree.layout);
    fields["layout_guessed"] = tree.layout_was_guessed;
    fields["areas"] = Json::array();
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
        tree.layout_was_guessed ? "" : " (as said)");
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

// ---- locks -------------------------------------------------------------------------------------

Exit run_locks(Context& context) {
  const admin::Tree& tree = context.tree();
  std::vector<sys::HeldLock> locks;
  const sys::Knowledge known = sys::find_locks(tree.storage, locks);
  for (const sys::HeldLock& lock : locks) {
    if (context.out().json()) {
      Json fields;
      fields["record"] = "lock";
      put_name(fields, "path", lock.path);
      fields["lock"] = lock.is_exclusive ? "exclusive" : "shared";
      fields["whole_file"] = lock.is_whole_file;
      fields["process"] = lock.process;
      put_name(fields, "command", lock.command);
      context.out().json_line("stgctl.locks/1", fields);
    } else {
      context.out().print("{:<9}  {:>8}  {:<16}  {}\n", lock.is_exclusive ? "exclusive" : "shared",
                          lock.process, shown(lock.command), shown(lock.path));
    }
  }
  if (context.out().json())
    context.out().json_line(
        "stgctl.locks/1",
        {{"record", "summary"}, {"locks", locks.size()}, {"known", name_of(known)}});
  if (known == sys::Knowledge::kNone)
    context.out().warning("this system does not tell who holds a lock");
  if (known == sys::Knowledge::kPartial)
    context.out().warning(
        "other users' processes could not be looked into; try it as an administrator");
  if (!context.out().json() && locks.empty() && known != sys::Knowledge::kNone)
    context.out().note("nobody holds a lock");
  return Exit::kDone;
}

// ---- doctor ------------------------------------------------------------------------------------

struct DoctorOptions {
  std::string try_in;
  std::string shared;
  std::string peer;
};

/// What was found out, and what is said about it.
struct Diagnosis {
  sys::FileSystem system;
  admin::LockTrial trial;
  std::string trial_file_system;
  std::vector<std::string> warnings;
};

Diagnosis diagnose(Context& context, const DoctorOptions& options) {
  const admin::Tree& tree = context.tree();
  Diagnosis found;
  found.system = sys::file_system_of(tree.storage);
  const std::string folder =
      sys::absolute(options.try_in.empty() ? admin::temporary_folder() : options.try_in);
  if (sys::join(folder, "").starts_with(sys::join(tree.storage, "")))
    throw Failure(Exit::kRefused,
                  "the trial leaves no trace in the tree; name a folder outside of it");
  found.trial = admin::try_locks(folder);
  found.trial_file_system = sys::file_system_of(folder).type;
  const auto warn = [&](const char* text) { found.warnings.emplace_back(text); };
  if (found.trial.proof == admin::LockProof::kDoNotExclude)
    warn("locks do not exclude each other: processes will overwrite each other's changes");
  if (found.trial.proof == admin::LockProof::kFailed) warn("locks could not be tried");
  if (found.trial_file_system != found.system.type)
    warn(
        "locks were tried on another kind of file system; name a folder beside the tree by "
        "--try-locks");
  if (found.system.is_network)
    warn("a network file system: locks may hold between processes of one machine only");
  if (found.system.is_read_only) warn("the file system is mounted read-only");
  if (sys::narrow_encoding() != "UTF-8")
    warn("narrow names are not UTF-8 here: a tree shared with other systems needs ASCII names");
  return found;
}

Exit run_doctor(Context& context, const DoctorOptions& options) {
  if (!options.shared.empty()) return run_doctor_shared(context, options.shared, options.peer);
  const admin::Tree& tree = context.tree();
  const Diagnosis found = diagnose(context, options);
  if (context.out().json()) {
    Json fields;
    fields["version"] = VU_STGCTL_VERSION;
    fields["system"] = sys::system_name();
    fields["encoding"] = sys::narrow_encoding();
    put_name(fields, "storage", tree.storage);
    fields["layout"] = admin::name_of(tree.layout);
    fields["file_system"] = found.system.type;
    fields["network"] = found.system.is_network;
    fields["read_only"] = found.system.is_read_only;
    fields["total_bytes"] = found.system.total_bytes;
    fields["free_bytes"] = found.system.free_bytes;
    fields["path_limit"] = sys::kPathLimit;
    fields["locks"] = admin::name_of(found.trial.proof);
    put_name(fields, "locks_tried_in", found.trial.folder);
    fields["locks_tried_on"] = found.trial_file_system;
    fields["locks_detail"] = shown(found.trial.detail);
    fields["warnings"] = found.warnings;
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
         formatted("{}: {} (tried in {}, {})", admin::name_of(found.trial.proof),
                   shown(found.trial.detail), shown(found.trial.folder), found.trial_file_system));
    for (const std::string& warning : found.warnings) context.out().warning(warning);
  }
  const bool good = found.trial.proof == admin::LockProof::kExclude && !found.system.is_read_only;
  return good ? Exit::kDone : Exit::kProblemsFound;
}

Run declare_doctor(Arguments& app) {
  auto options = std::make_shared<DoctorOptions>();
  app.add_option("--try-locks", options->try_in,
                 "Where locks are tried with a file that is gone afterwards (the folder for "
                 "temporary files)")
      .type_name("DIR");
  const Argument shared =
      app.add_option("--shared", options->shared,
                     "Instead: try whether the file system of this folder, which need be no tree, "
                     "can be shared by hosts")
          .type_name("DIR")
          .excludes("--try-locks");
  app.add_option("--peer", options->peer,
                 "With --shared: the same folder through another mount, which stands for another "
                 "host")
      .type_name("DIR")
      .needs(shared);
  return [options](Context& context) { return run_doctor(context, *options); };
}

}  // namespace

void add_status_commands(Commands& commands) {
  commands.push_back({"status", Group::kLook, Effect::kLooks, "Show a tree at a glance",
                      [](Arguments&) -> Run { return run_status; },
                      "Its areas with their owners, folders and indexes, free space, and how many\n"
                      "locks are held. No index is read."});
  commands.push_back(
      {"locks", Group::kLook, Effect::kLooks, "Show who holds which file locked",
       [](Arguments&) -> Run { return run_locks; },
       "On Linux, for the processes that you may look into. Windows does not tell."});
  commands.push_back({"doctor", Group::kLook, Effect::kLooks,
                      "Show what the tree stands on, and prove that locks exclude", declare_doctor,
                      "Versions, code page, file system. The exit code is 4 when something is\n"
                      "wrong. With --shared each thing that hosts need of a shared file system is\n"
                      "tried, and where one is missing the setting is named that mends it."});
}

}  // namespace stgctl
