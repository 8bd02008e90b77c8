#include "client/stgctl/command.h"
#include "client/stgctl/look.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace {

namespace sys = admin::sys;

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

}  // namespace

void add_locks_command(Commands& commands) {
  commands.push_back(
      {"locks", Group::kLook, Effect::kLooks, "Show who holds which file locked",
       [](Arguments&) -> Run { return run_locks; },
       "On Linux, for the processes that you may look into. Windows does not tell."});
}

}  // namespace stgctl
