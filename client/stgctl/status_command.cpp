#include "client/stgctl/look.h"

namespace stgctl {

namespace {

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

}  // namespace

Commands status_command() {
  return {{"status", Group::kLook, Effect::kLooks, "Show an overview of a tree", run_status,
           "Shows the areas with their owners, folders and indexes, the free space, and the\n"
           "number of locks. Reads no index."}};
}

}  // namespace stgctl
