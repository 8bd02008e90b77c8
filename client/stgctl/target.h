#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/admin/entries.h"
#include "client/admin/tree.h"
#include "client/stgctl/context.h"
#include "client/stgctl/report.h"
#include "stg_types.h"

namespace stgctl {

/// A version as every line prints it: "AREA/OWNER/NAME@STAMP", without the owner in a tree that has
/// none. The stamp may be left out.
struct VersionName {
  std::string area;
  std::string owner;  ///< empty in a tree without owners
  std::string name;
  std::optional<std::int32_t> timestamp;
};

/// Takes such a text apart. @return nothing for any other text, which is then a name by itself.
/// @throws Failure kUsage for a number behind the "@" that is no timestamp: taken for a part of the
/// name, or for no timestamp at all, it would lead to another version.
std::optional<VersionName> parse_version_name(const std::string& text, admin::Layout layout);

}  // namespace stgctl

/// @file
/// What a changing command works on, and what it refuses to touch. The library takes names as parts
/// of paths; so whatever could lead it out of the tree, or to the index's own files, is refused
/// here.
namespace stgctl {

/// One owner's part of an area.
struct Target {
  admin::Area area = admin::Area::kDocs;
  STG::RepositoryType type = STG::CorporateRepository;
  std::string owner;          ///< as named; empty in a tree without owners
  std::string library_owner;  ///< what the library is given: never empty
};

/// The target that --area and --owner name. @param fallback the area when none is said.
/// @throws Failure kRefused for an unsafe owner, for none where the tree has owners, for an area
/// that keeps no documents.
Target target_of(Context& context, admin::Area fallback);
/// The target of an entry that was found.
Target target_of(Context& context, const admin::DocumentFolder& folder);

/// A version that the command line names.
struct NamedVersion {
  Target target;
  std::string name;
  std::optional<std::int32_t> timestamp;
};
/// Takes a name, or a version as every line prints it; --area, --owner and @p timestamp say what
/// the text leaves out. The name may be a pattern as well, and is not checked.
/// @param fallback the area when none is said.
/// @throws Failure kUsage where the text contradicts the options; as target_of().
NamedVersion named_version(Context& context, const std::string& text, const std::string& timestamp,
                           admin::Area fallback);
/// What a version says by itself. @throws as target_of().
NamedVersion named_version_at(Context& context, const VersionName& version);

/// @throws Failure kRefused when the library must not be given this name. @param what "the owner".
void check_name(std::string_view what, std::string_view name);
/// @throws Failure kRefused when a link lies on the way from the storage folder to the path.
void check_no_link(Context& context, const std::string& path);

/// An entry that was found, with copies of what the listing showed.
struct FoundEntry {
  admin::DocumentFolder folder;
  admin::EntryState state = admin::EntryState::kIndexed;
  std::string name;
  std::int32_t timestamp = 0;
  std::string stored;
  std::string file;
  admin::sys::Info info;

  FoundEntry() = default;
  explicit FoundEntry(const admin::EntryView& entry);
  std::string path() const { return admin::sys::join(folder.path, file); }
  admin::EntryView view() const { return {&folder, state, name, timestamp, stored, file, 0, info}; }
};
Subject subject_of(const FoundEntry& entry);

/// The entries that match, with their sizes and times; nothing is changed.
/// @throws Failure kLockTimeout when an index stayed locked, kFailed when a folder could not be
/// read, kInterrupted after Ctrl-C.
std::vector<FoundEntry> find_entries(Context& context, admin::EntryQuery query);
/// The entries of one folder, in the order of its index; none when there is no such folder.
/// @throws as find_entries().
std::vector<FoundEntry> entries_of_folder(Context& context, const admin::DocumentFolder& folder);
/// Entries of folders by name: the index of the folder that was asked for last is read once.
class KnownEntries {
 public:
  explicit KnownEntries(Context& context) : m_context(context) {}

  /// @throws as find_entries().
  std::optional<FoundEntry> find(const admin::DocumentFolder& folder, const std::string& name,
                                 std::int32_t timestamp);
  /// What is known may have changed.
  void forget() { m_folder.clear(); }

 private:
  Context& m_context;
  std::string m_folder;
  std::map<std::string, FoundEntry> m_entries;  ///< by key
};

/// The versions of one entry of a target, oldest stamp first.
std::vector<FoundEntry> find_versions(Context& context, const Target& target,
                                      const std::string& name);

/// Leaves the versions of the timestamp that was named, if one was.
void keep_wanted(std::vector<FoundEntry>& versions, const NamedVersion& named);
/// The versions whose names match the pattern that the name is.
std::vector<FoundEntry> find_matching(Context& context, const NamedVersion& pattern);

/// The name under which the library adopts a file: its extension in lower case.
std::string adopted_name(std::string name);

/// @throws Failure kRefused when the folder holds a file that bears the logical name and is not
/// that very version: the library would take it for every version of the name.
void check_not_shadowed(Context& context, const Target& target, const std::string& name,
                        std::int32_t timestamp);

// ---- owners ------------------------------------------------------------------------------------
//
// What the commands "user ..." share: the folders of owners.

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
