
#include <array>
#include <filesystem>
#include <map>
#include <memory>

#include "client/stgctl/command.h"
#include "client/stgctl/lock_wait.h"
#include "client/stgctl/operations.h"
#include "client/stgctl/paths.h"
#include "client/stgctl/text.h"
#include "vu_storage.h"

namespace stgctl {

namespace sys = admin::sys;

namespace {

/// The areas whose owners' folders are renamed and removed, in the library's order. Corporate
/// documents are shared and stay.
constexpr std::array<admin::Area, 3> kPersonal = {admin::Area::kMail, admin::Area::kList,
                                                  admin::Area::kUser};
constexpr std::array<admin::Area, 4> kWithOwners = {admin::Area::kDocs, admin::Area::kUser,
                                                    admin::Area::kMail, admin::Area::kList};

void require_owners(Context& context) {
  if (context.tree().layout == admin::Layout::kFlat) {
    throw Failure(Exit::kRefused,
                  "the owners of this tree share its folders; there is nothing of one owner's");
  }
}

/// @throws Failure kRefused, also for an owner of one area: the areas go together.
void check_owner(std::string_view what, const std::string& name) {
  const std::size_t slash = name.find('/');
  if (slash != std::string::npos && admin::area_named(name.substr(0, slash))) {
    throw Failure(Exit::kRefused,
                  formatted("{} '{}' names one area, but an owner's mail, list and user folders go "
                            "together, and corporate documents stay; say '{}'",
                            what, shown(name), shown(name.substr(slash + 1))));
  }
  check_name(what, name);
}

std::string folder_of(Context& context, admin::Area area, const std::string& user) {
  return sys::join(context.tree().folder_of(area), user);
}

/// Files and bytes below a folder; links are counted as files and not followed.
struct Content {
  std::uint64_t files = 0;
  std::uint64_t bytes = 0;
};

void count(const std::string& path, Content& content) {
  Context::stop_if_interrupted();
  sys::Folder folder;
  if (!folder.open(path).ok()) return;
  sys::Entry entry;
  while (folder.next(entry)) {
    if (entry.kind == sys::Kind::kFolder) {
      count(sys::join(path, entry.name), content);
      continue;
    }
    ++content.files;
    content.bytes += folder.describe(entry).size;
  }
}

/// The personal folders of a user that exist.
std::vector<admin::Area> areas_of(Context& context, const std::string& user) {
  std::vector<admin::Area> areas;
  for (const admin::Area area : kPersonal) {
    const std::string folder = folder_of(context, area, user);
    check_no_link(context, folder);
    if (sys::describe(folder).kind == sys::Kind::kFolder) areas.push_back(area);
  }
  return areas;
}

/// No operation may use the folders meanwhile; those with an index tell of it by their locks.
void wait_for_folders(Context& context, const std::vector<admin::Area>& areas,
                      const std::string& user) {
  for (const admin::Area area : areas) wait_until_free(context, folder_of(context, area, user));
}

Exit run_list(Context& context) {
  require_owners(context);
  std::map<std::string, std::vector<admin::Area>> owners;
  for (const admin::Area area : kWithOwners) {
    const admin::Scope scope = context.scope();
    if (scope.area && *scope.area != area) continue;
    sys::Folder folder;
    if (!folder.open(context.tree().folder_of(area)).ok()) continue;
    sys::Entry entry;
    while (folder.next(entry)) {
      if (entry.kind != sys::Kind::kFolder) continue;
      if (scope.owner && *scope.owner != entry.name) continue;
      owners[std::string(entry.name)].push_back(area);
    }
  }
  Output& out = context.out();
  for (const auto& [name, areas] : owners) {
    Json names = Json::array();
    std::string text;
    for (const admin::Area area : areas) {
      names.push_back(admin::name_of(area));
      text += formatted("{}{}", text.empty() ? "" : " ", admin::name_of(area));
    }
    if (out.json()) {
      Json fields;
      put_name(fields, "owner", name);
      fields["areas"] = names;
      out.json_line("stgctl.user.list/1", fields);
    } else {
      const std::string shown_name = shown(name);
      out.print("{}{}  {}\n", shown_name,
                std::string(24 - std::min<std::size_t>(24, columns(shown_name)), ' '),
                out.styled(Style::kDim, text));
    }
  }
  return owners.empty() ? Exit::kNothingMatched : Exit::kDone;
}

Exit run_rename(Context& context, const std::string& from, const std::string& to) {
  require_owners(context);
  check_owner("the owner", from);
  check_owner("the new owner", to);
  if (from == to) throw Failure(Exit::kRefused, "the new name is the old one");
  const std::vector<admin::Area> areas = areas_of(context, from);
  if (areas.empty()) throw Failure(Exit::kNothingMatched, "nobody is called " + shown(from));
  for (const admin::Area area : kPersonal) {
    if (sys::describe(folder_of(context, area, to)).kind != sys::Kind::kMissing) {
      throw Failure(Exit::kRefused, formatted("{} exists already; nothing was renamed",
                                              shown(folder_of(context, area, to))));
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
    const bool renamed = sys::describe(folder_of(context, area, from)).kind == sys::Kind::kMissing;
    if (context.options().dry_run || renamed) {
      Json fields;
      put_name(fields, "new_owner", to);
      report.done(subject, fields, "to " + shown(to));
    } else {
      report.failed(subject, "the folder could not be renamed; is something in it open?");
    }
  }
  return report.finish();
}

Exit run_remove(Context& context, const std::vector<std::string>& users) {
  require_owners(context);
  struct Folder {
    std::string user;
    admin::Area area;
    Content content;
  };
  std::vector<Folder> folders;
  Content all;
  std::vector<std::string> unknown;
  for (const std::string& user : users) {
    check_owner("the owner", user);
    const std::vector<admin::Area> areas = areas_of(context, user);
    if (areas.empty()) unknown.push_back(user);
    for (const admin::Area area : areas) {
      Folder folder = {user, area, {}};
      count(folder_of(context, area, user), folder.content);
      all.files += folder.content.files;
      all.bytes += folder.content.bytes;
      folders.push_back(folder);
    }
  }
  if (folders.empty()) throw Failure(Exit::kNothingMatched, "nobody of that name has a folder");
  ChangeReport report(context, "stgctl.user.remove/1", "removed");
  if (!context.options().dry_run) {
    context.confirm(formatted("Remove {} folders with {} files, {}, for good?", folders.size(),
                              all.files, format_bytes(all.bytes)));
    context.open_library();
  }
  report.guarded([&] {
    for (const std::string& user : users) {
      if (context.options().dry_run) break;
      Context::stop_if_interrupted();
      wait_for_folders(context, areas_of(context, user), user);
      vu_storage::RemoveUserStorage(vu_utf8string(user));
    }
    return 0;
  });
  for (const std::string& user : unknown)
    report.failed({"", user, "", {}}, "nobody of that name has a folder in mail, list or user");
  std::uint64_t bytes = 0;
  for (const Folder& folder : folders) {
    const Subject subject = {std::string(admin::name_of(folder.area)), folder.user, "", {}};
    const bool removed =
        sys::describe(folder_of(context, folder.area, folder.user)).kind == sys::Kind::kMissing;
    if (!context.options().dry_run && !removed) {
      report.failed(
          subject,
          "the folder could not be removed as a whole; what is left may be read-only or open");
      continue;
    }
    bytes += folder.content.bytes;
    report.done(
        subject, {{"files", folder.content.files}, {"bytes", folder.content.bytes}},
        formatted("{} files, {}", folder.content.files, format_bytes(folder.content.bytes)));
  }
  return report.finish({{"bytes", bytes}}, format_bytes(bytes));
}

}  // namespace

void add_user_commands(Commands& commands) {
  commands.push_back({"user list", Group::kChange, Effect::kLooks,
                      "List the owners of a tree and their areas",
                      [](Arguments&) -> Run { return run_list; }});
  const auto declare_rename = [](Arguments& app) -> Run {
    const auto names = std::make_shared<std::array<std::string, 2>>();
    app.add_option("name", (*names)[0], "The owner").type_name("OWNER").required();
    app.add_option("new-name", (*names)[1], "The new name").type_name("NEW-OWNER").required();
    return [names](Context& context) { return run_rename(context, (*names)[0], (*names)[1]); };
  };
  const char* const details =
      "This concerns the areas mail, list and user. Corporate documents (docs) belong to no\n"
      "single owner and stay.";
  commands.push_back({"user rename", Group::kChange, Effect::kChanges, "Rename an owner's folders",
                      declare_rename, details});
  const auto declare_remove = [](Arguments& app) -> Run {
    const auto names = std::make_shared<std::vector<std::string>>();
    app.add_option("name", *names, "The owners").type_name("OWNER").required();
    return [names](Context& context) { return run_remove(context, *names); };
  };
  commands.push_back({"user remove", Group::kChange, Effect::kChanges,
                      "Remove owners' folders with everything in them", declare_remove, details});
}

}  // namespace stgctl
