#include <array>
#include <map>

#include "client/stgctl/command.h"
#include "client/stgctl/target.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace sys = admin::sys;

namespace {

constexpr std::array<admin::Area, 4> kWithOwners = {admin::Area::kDocs, admin::Area::kUser,
                                                    admin::Area::kMail, admin::Area::kList};

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

}  // namespace

Commands user_list_command() {
  return {{"user list", Group::kChange, Effect::kLooks, "List the owners of a tree and their areas",
           run_list}};
}

}  // namespace stgctl
