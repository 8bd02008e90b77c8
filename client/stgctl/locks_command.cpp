#include "client/stgctl/look.h"

namespace stgctl {

namespace {

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

}  // namespace

Commands locks_command() {
  return {{"locks", Group::kLook, Effect::kLooks, "Show which process holds which lock", run_locks,
           "Works on Linux, for the processes that you may inspect. Windows does not report it."}};
}

}  // namespace stgctl
