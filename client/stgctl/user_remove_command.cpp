
#include "client/stgctl/command.h"
#include "client/stgctl/report.h"
#include "client/stgctl/target.h"
#include "client/stgctl/text.h"
#include "vu_storage.h"

namespace stgctl {

namespace sys = admin::sys;

namespace {

/// Files and bytes below a folder. Links count as files and are not followed.
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

struct Options {
  Arguments app;
  ListOption users{app, "name", "OWNER", "The owners", {kRequired}};
};

Exit run_remove(Context& context, const Options& options) {
  const std::vector<std::string>& users = options.users;
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
      count(owner_folder(context, area, user), folder.content);
      all.files += folder.content.files;
      all.bytes += folder.content.bytes;
      folders.push_back(folder);
    }
  }
  if (folders.empty()) throw Failure(Exit::kNothingMatched, "no owner of that name has a folder");
  ChangeReport report(context, "stgctl.user.remove/1", "removed");
  if (!context.options().dry_run) {
    context.confirm(formatted("Delete {} folders with {} files, {}?", folders.size(), all.files,
                              format_bytes(all.bytes)));
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
    report.failed({"", user, "", {}}, "no owner of that name has a folder in mail, list or user");
  std::uint64_t bytes = 0;
  for (const Folder& folder : folders) {
    const Subject subject = {std::string(admin::name_of(folder.area)), folder.user, "", {}};
    const bool removed =
        sys::describe(owner_folder(context, folder.area, folder.user)).kind == sys::Kind::kMissing;
    if (!context.options().dry_run && !removed) {
      report.failed(
          subject, "the folder could not be removed completely; the rest may be read-only or open");
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

Commands user_remove_command() {
  return {{"user remove", Group::kChange, Effect::kChanges,
           "Remove owners' folders with all their content", run_remove, kAreasGoTogether}};
}

}  // namespace stgctl
