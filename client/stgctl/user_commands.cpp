// user: list, rename, remove.

#include <array>

#include "client/stgctl/command.h"
#include "client/stgctl/operations.h"
#include "vu_storage.h"

namespace stgctl {

namespace {

/// The areas whose owners' folders are renamed and removed, in the library's order. Corporate
/// documents are shared and stay.
constexpr std::array<admin::Area, 3> kPersonalAreas = {admin::Area::kMail, admin::Area::kList,
                                                       admin::Area::kUser};

// ---- the folders of owners ---------------------------------------------------------------------

void require_owners(Context& context) {
  if (context.tree().layout == admin::Layout::kFlat)
    refuse("the owners of this tree share its folders; it has no folder of one owner");
}

/// @throws Failure kRefused also for an owner with an area: the command changes the areas together.
void check_owner(std::string_view what, const std::string& name) {
  const std::size_t slash = name.find('/');
  if (slash != std::string::npos && admin::area_named(name.substr(0, slash)))
    refuse(
        "{} '{}' names one area, but the command changes the owner's mail, list and user folders "
        "together, and not the corporate documents; use '{}'",
        what, shown(name), shown(name.substr(slash + 1)));
  check_name(what, name);
}

std::string owner_folder(Context& context, admin::Area area, const std::string& owner) {
  return sys::join(context.tree().folder_of(area), owner);
}

bool is_missing(Context& context, admin::Area area, const std::string& owner) {
  return sys::describe(owner_folder(context, area, owner)).kind == sys::Kind::kMissing;
}

/// The areas in which an owner has a personal folder. @throws Failure kRefused for a link.
std::vector<admin::Area> areas_of(Context& context, const std::string& owner) {
  std::vector<admin::Area> areas;
  for (const admin::Area area : kPersonalAreas) {
    const std::string folder = owner_folder(context, area, owner);
    check_no_link(context, folder);
    if (sys::describe(folder).kind == sys::Kind::kFolder) areas.push_back(area);
  }
  return areas;
}

void wait_for_folders(Context& context, const std::string& owner) {
  for (const admin::Area area : areas_of(context, owner))
    wait_until_free(context, owner_folder(context, area, owner));
}

// ---- the commands ------------------------------------------------------------------------------

Exit run_list(Context& context) {
  require_owners(context);
  const auto owners = owners_in(context, context.scope());
  Output& out = context.out();
  for (const auto& [name, areas] : owners) {
    out.result("stgctl.user.list/1", {{"owner", name}, {"areas", Json(areas)}}, "{}  {}\n",
               padded(shown(name), 24), out.styled(Style::kDim, joined(areas, " ")));
  }
  return owners.empty() ? Exit::kNothingMatched : Exit::kDone;
}

struct RenameOptions : Arguments {
  TextOption from{*this, "name", "OWNER", "The owner", kRequired};
  TextOption to{*this, "new-name", "NEW-OWNER", "The new name", kRequired};
};

Exit run_rename(Context& context, const RenameOptions& options) {
  const std::string& from = options.from;
  const std::string& to = options.to;
  require_owners(context);
  check_owner("the owner", from);
  check_owner("the new owner", to);
  if (from == to) refuse("the new name is the old one");
  const std::vector<admin::Area> areas = areas_of(context, from);
  if (areas.empty()) not_found("no owner has the name {}", shown(from));
  for (const admin::Area area : kPersonalAreas) {
    if (!is_missing(context, area, to))
      refuse("{} already exists: nothing was renamed", shown(owner_folder(context, area, to)));
  }
  ChangeReport report(context, "stgctl.user.rename/1", "renamed");
  context.begin_changes(
      formatted("Rename {} to {} in {} areas?", shown(from), shown(to), areas.size()));
  if (!context.is_dry_run()) {
    wait_for_folders(context, from);
    vu_storage::RenameUserStorage(from, to);
  }
  for (const admin::Area area : areas) {
    const Subject subject = subject_in(area, from);
    if (context.is_dry_run() || is_missing(context, area, from)) {
      report.done(subject, {{"new_owner", to}}, "to " + shown(to));
    } else {
      report.failed(subject, "the folder could not be renamed; check whether a file in it is open");
    }
  }
  return report.finish();
}

struct OwnerFolder {
  std::string owner;
  admin::Area area = admin::Area::kUser;
  admin::Sum content;
};

struct RemoveOptions : Arguments {
  ListOption owners{*this, "name", "OWNER", "The owners", kRequired};
};

Exit run_remove(Context& context, const RemoveOptions& options) {
  const std::vector<std::string>& owners = options.owners;
  require_owners(context);
  std::vector<OwnerFolder> folders;
  admin::Sum all;
  std::vector<std::string> unknown;
  for (const std::string& owner : owners) {
    check_owner("the owner", owner);
    const std::vector<admin::Area> areas = areas_of(context, owner);
    if (areas.empty()) unknown.push_back(owner);
    for (const admin::Area area : areas) {
      const std::string folder = owner_folder(context, area, owner);
      folders.push_back({owner, area, count_below(folder, Context::stop_if_interrupted)});
      all += folders.back().content;
    }
  }
  if (folders.empty()) not_found("no owner of that name has a folder");
  ChangeReport report(context, "stgctl.user.remove/1", "removed");
  context.begin_changes(formatted("Delete {} folders with {} files, {}?", folders.size(), all.files,
                                  format_bytes(all.bytes)));
  report.guarded([&] {
    for (const std::string& owner : owners) {
      if (context.is_dry_run()) break;
      Context::stop_if_interrupted();
      wait_for_folders(context, owner);
      vu_storage::RemoveUserStorage(vu_utf8string(owner));
    }
  });
  for (const std::string& owner : unknown) {
    report.failed({"", owner, "", {}}, "no owner of that name has a folder in mail, list or user");
  }
  for (const auto& [owner, area, content] : folders) {
    const Subject subject = subject_in(area, owner);
    if (!context.is_dry_run() && !is_missing(context, area, owner)) {
      report.failed(
          subject, "the folder could not be removed completely; the rest may be read-only or open");
      continue;
    }
    report.add_bytes(content.bytes);
    report.done(subject, {{"files", content.files}, {"bytes", content.bytes}},
                formatted("{} files, {}", content.files, format_bytes(content.bytes)));
  }
  return report.finish({{"bytes", report.bytes()}}, format_bytes(report.bytes()));
}

}  // namespace

Commands user_commands() {
  return {{"user list", Group::kLook, Effect::kLooks, "List the owners of a tree and their areas",
           run_list},
          {"user rename", Group::kChange, Effect::kChanges, "Rename an owner's folders", run_rename,
           "This concerns the areas mail, list and user. Corporate documents (docs) keep the old\n"
           "owner."},
          {"user remove", Group::kChange, Effect::kChanges,
           "Remove owners' folders with all their content", run_remove,
           "This concerns the areas mail, list and user. Corporate documents (docs) stay."}};
}

}  // namespace stgctl
