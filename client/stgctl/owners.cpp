#include "client/stgctl/owners.h"

#include "client/stgctl/exit_codes.h"
#include "client/stgctl/lock_wait.h"
#include "client/stgctl/target.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace sys = admin::sys;

void require_owners(Context& context) {
  if (context.tree().layout == admin::Layout::kFlat) {
    throw Failure(Exit::kRefused,
                  "the owners of this tree share its folders; there is nothing of one owner's");
  }
}

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

std::string owner_folder(Context& context, admin::Area area, const std::string& user) {
  return sys::join(context.tree().folder_of(area), user);
}

std::vector<admin::Area> areas_of(Context& context, const std::string& user) {
  std::vector<admin::Area> areas;
  for (const admin::Area area : kPersonalAreas) {
    const std::string folder = owner_folder(context, area, user);
    check_no_link(context, folder);
    if (sys::describe(folder).kind == sys::Kind::kFolder) areas.push_back(area);
  }
  return areas;
}

void wait_for_folders(Context& context, const std::vector<admin::Area>& areas,
                      const std::string& user) {
  for (const admin::Area area : areas) wait_until_free(context, owner_folder(context, area, user));
}

}  // namespace stgctl
