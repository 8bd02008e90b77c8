#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "client/stgctl/context.h"

/// @file
/// What the commands "user ..." share: the folders of owners.
namespace stgctl {

/// The areas whose owners' folders are renamed and removed, in the library's order. Corporate
/// documents are shared and stay.
inline constexpr std::array<admin::Area, 3> kPersonalAreas = {
    admin::Area::kMail, admin::Area::kList, admin::Area::kUser};

/// What the help of user rename and user remove says.
inline constexpr const char* kAreasGoTogether =
    "This concerns the areas mail, list and user. Corporate documents (docs) belong to no\n"
    "single owner and stay.";

/// @throws Failure kRefused in a tree without owners.
void require_owners(Context& context);
/// @throws Failure kRefused, also for an owner of one area: the areas go together.
void check_owner(std::string_view what, const std::string& name);
std::string owner_folder(Context& context, admin::Area area, const std::string& owner);
/// The areas in which an owner has a personal folder. @throws Failure kRefused for a link.
std::vector<admin::Area> areas_of(Context& context, const std::string& owner);
/// No operation may use the folders meanwhile; those with an index tell of it by their locks.
void wait_for_folders(Context& context, const std::vector<admin::Area>& areas,
                      const std::string& owner);

}  // namespace stgctl
