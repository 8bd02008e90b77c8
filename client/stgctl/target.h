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

/// A version in its printed form: "AREA/OWNER/NAME@STAMP", without the owner in a flat tree. The
/// stamp can be omitted.
struct VersionName {
  std::string area;
  std::string owner;  ///< empty in a tree without owners
  std::string name;
  std::optional<std::int32_t> timestamp;
};

/// Splits such a text. @return nothing for any other text, which is then a plain name.
/// @throws Failure kUsage for a number after "@" that is not a timestamp. Such a text must not
/// count as a name: it would lead to another version.
std::optional<VersionName> parse_version_name(const std::string& text, admin::Layout layout);

}  // namespace stgctl

/// @file
/// The targets of changing commands, and what these refuse to change. The library uses names as
/// parts of paths. So names that could lead it out of the tree, or to the index's own files, are
/// refused here.
namespace stgctl {

/// One owner's part of an area.
struct Target {
  admin::Area area = admin::Area::kDocs;
  STG::RepositoryType type = STG::CorporateRepository;
  std::string owner;          ///< as named; empty in a tree without owners
  std::string library_owner;  ///< the owner for the library: never empty
};

/// The target that --area and --owner name. @param fallback the area without --area.
/// @throws Failure kRefused for an unsafe owner, for a missing one in a tree with owners, for an
/// area without documents.
Target target_of(Context& context, admin::Area fallback);
/// The target of a found entry.
Target target_of(Context& context, const admin::DocumentFolder& folder);

/// A version that the command line names.
struct NamedVersion {
  Target target;
  std::string name;
  std::optional<std::int32_t> timestamp;
};
/// Reads a name, or the printed form of a version. --area, --owner and @p timestamp supply what the
/// text omits. The name can also be a pattern; it is not checked.
/// @param fallback the area without --area.
/// @throws Failure kUsage if the text contradicts the options; as target_of().
NamedVersion named_version(Context& context, const std::string& text, const std::string& timestamp,
                           admin::Area fallback);
/// What the text of a version says, without options. @throws as target_of().
NamedVersion named_version_at(Context& context, const VersionName& version);

/// @throws Failure kRefused if the name is not safe for the library. @param what "the owner".
void check_name(std::string_view what, std::string_view name);
/// @throws Failure kRefused if a link is on the way from the storage folder to the path.
void check_no_link(Context& context, const std::string& path);

/// A found entry, with copies of what the listing showed.
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

/// The matching entries, with their sizes and times. Changes nothing.
/// @throws Failure kLockTimeout if an index stayed locked, kFailed if a folder could not be read,
/// kInterrupted after Ctrl-C.
std::vector<FoundEntry> find_entries(Context& context, admin::EntryQuery query);
/// The entries of one folder, in the order of its index; empty if there is no such folder.
/// @throws as find_entries().
std::vector<FoundEntry> entries_of_folder(Context& context, const admin::DocumentFolder& folder);
/// Entries of folders by name. Keeps the index of the last requested folder.
class KnownEntries {
 public:
  explicit KnownEntries(Context& context) : m_context(context) {}

  /// @throws as find_entries().
  std::optional<FoundEntry> find(const admin::DocumentFolder& folder, const std::string& name,
                                 std::int32_t timestamp);
  /// Drops what it keeps, after a change.
  void forget() { m_folder.clear(); }

 private:
  Context& m_context;
  std::string m_folder;
  std::map<std::string, FoundEntry> m_entries;  ///< by key
};

/// The versions of one entry of a target, oldest stamp first.
std::vector<FoundEntry> find_versions(Context& context, const Target& target,
                                      const std::string& name);

/// Keeps only the versions of the given timestamp, if there is one.
void keep_wanted(std::vector<FoundEntry>& versions, const NamedVersion& named);
/// The versions whose names match the pattern in the name.
std::vector<FoundEntry> find_matching(Context& context, const NamedVersion& pattern);

/// The name under which the library adopts a file: its extension in lower case.
std::string adopted_name(std::string name);

/// @throws Failure kRefused if another file of the folder has the logical name as its file name.
/// The library would serve that file for every version of the name.
void check_not_shadowed(Context& context, const Target& target, const std::string& name,
                        std::int32_t timestamp);

// ---- the folders of owners, for the commands "user ..." ----------------------------------------

/// The areas whose owners' folders are renamed and removed, in the library's order. Corporate
/// documents are shared and stay.
inline constexpr std::array<admin::Area, 3> kPersonalAreas = {
    admin::Area::kMail, admin::Area::kList, admin::Area::kUser};

/// The help text of user rename and user remove.
inline constexpr const char* kAreasGoTogether =
    "This concerns the areas mail, list and user. Corporate documents (docs) belong to no\n"
    "single owner and stay.";

/// @throws Failure kRefused in a tree without owners.
void require_owners(Context& context);
/// @throws Failure kRefused also for an owner with an area: the command changes the areas together.
void check_owner(std::string_view what, const std::string& name);
std::string owner_folder(Context& context, admin::Area area, const std::string& owner);
/// The areas in which an owner has a personal folder. @throws Failure kRefused for a link.
std::vector<admin::Area> areas_of(Context& context, const std::string& owner);
/// Waits until no process holds the index or the counter of one of the folders.
void wait_for_folders(Context& context, const std::vector<admin::Area>& areas,
                      const std::string& owner);

}  // namespace stgctl
