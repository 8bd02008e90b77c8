#include <array>

#include "client/stgctl/command.h"
#include "client/stgctl/report.h"
#include "client/stgctl/target.h"
#include "client/stgctl/text.h"
#include "vu_storage.h"

namespace stgctl {

namespace sys = admin::sys;

namespace {

struct Options {
  Arguments app;
  TextOption from{app, "name", "OWNER", "The owner", {kRequired}};
  TextOption to{app, "new-name", "NEW-OWNER", "The new name", {kRequired}};
};

Exit run_rename(Context& context, const Options& options) {
  const std::string& from = options.from;
  const std::string& to = options.to;
  require_owners(context);
  check_owner("the owner", from);
  check_owner("the new owner", to);
  if (from == to) throw Failure(Exit::kRefused, "the new name is the old one");
  const std::vector<admin::Area> areas = areas_of(context, from);
  if (areas.empty()) throw Failure(Exit::kNothingMatched, "no owner has the name " + shown(from));
  for (const admin::Area area : kPersonalAreas) {
    if (sys::describe(owner_folder(context, area, to)).kind != sys::Kind::kMissing) {
      throw Failure(Exit::kRefused, formatted("{} already exists: nothing was renamed",
                                              shown(owner_folder(context, area, to))));
    }
  }
  ChangeReport report(context, "stgctl.user.rename/1", "renamed");
  if (!context.options().dry_run) {
    context.confirm(
        formatted("Rename {} to {} in {} areas?", shown(from), shown(to), areas.size()));
    context.open_library();
    wait_for_folders(context, areas, from);
    vu_storage::RenameUserStorage(from, to);
  }
  for (const admin::Area area : areas) {
    const Subject subject = {std::string(admin::name_of(area)), from, "", {}};
    const bool renamed =
        sys::describe(owner_folder(context, area, from)).kind == sys::Kind::kMissing;
    if (context.options().dry_run || renamed) {
      Json fields;
      put_name(fields, "new_owner", to);
      report.done(subject, fields, "to " + shown(to));
    } else {
      report.failed(subject, "the folder could not be renamed; check whether a file in it is open");
    }
  }
  return report.finish();
}

}  // namespace

Commands user_rename_command() {
  return {{"user rename", Group::kChange, Effect::kChanges, "Rename an owner's folders", run_rename,
           kAreasGoTogether}};
}

}  // namespace stgctl
