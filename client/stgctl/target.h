#pragma once

#include <map>

#include "client/admin/entries.h"
#include "client/admin/text.h"
#include "client/stgctl/change_report.h"
#include "stg_types.h"

/// @file
/// The targets of changing commands, and what these refuse to change. The library uses names as
/// parts of paths. So names that could lead it out of the tree, or to the index's own files, are
/// refused here.
namespace stgctl {

/// Splits a version in its printed form: "AREA/OWNER/NAME@TIMESTAMP", without the owner in a flat
/// tree. The timestamp can be omitted. @return nothing for any other text, which is a plain name.
/// @throws Failure kUsage for a number after "@" that is not a timestamp. Such a text must not
/// count as a name: it would lead to another version.
std::optional<Subject> parse_version_name(const std::string& text, admin::Layout layout);

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
/// The folder for a name of a target. It need not exist.
admin::DocumentFolder folder_for(Context& context, const Target& target, const std::string& name);

/// A version that the command line names.
struct NamedVersion {
  Target target;
  std::string name;
  std::optional<std::int32_t> timestamp;
};
/// Reads a name, or the printed form of a version. --area, --owner and @p timestamp supply what the
/// text omits. The name can also be a pattern; it is not checked.
/// @throws Failure kUsage if the text contradicts the options; as target_of().
NamedVersion named_version(Context& context, const std::string& text, const std::string& timestamp);
/// What the text of a version says, without options. @throws as target_of().
NamedVersion named_version_at(Context& context, const Subject& version);

/// @throws Failure kNothingMatched if no area within --area has a folder of the owner --owner.
void check_owner_exists(Context& context);
/// Ends a command that found no entry. @param wanted a name or pattern; empty: any.
/// @throws Failure kNothingMatched, which names the areas and owners that were searched.
[[noreturn]] void none_matches(Context& context, const std::string& wanted = {});
/// The same for a version of one owner.
[[noreturn]] void no_version(const NamedVersion& named);

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
  sys::Info info;

  FoundEntry() = default;
  explicit FoundEntry(const admin::EntryView& entry);
  std::string path() const { return sys::join(folder.path, file); }
  admin::EntryView view() const { return {&folder, state, name, timestamp, stored, file, info}; }
};
Subject subject_of(const FoundEntry& entry);

/// The owners that have a folder in the scope, and the names of their areas.
std::map<std::string, std::vector<std::string>> owners_in(Context& context,
                                                          const admin::Scope& scope);
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

/// The versions of a name, oldest stamp first; only that of the given timestamp, if there is one.
std::vector<FoundEntry> find_versions(Context& context, const NamedVersion& named);
/// The versions whose names match the pattern in the name.
std::vector<FoundEntry> find_matching(Context& context, const NamedVersion& pattern);

/// Runs a walk over the tree that must read every folder: a plan from an incomplete view would be
/// wrong. @throws as find_entries().
void walk_whole(const std::function<admin::EntryFailures(const admin::FailureSink& failed)>& walk);

using admin::adopted_name;

/// @throws Failure kRefused if another file of the folder has the logical name as its file name.
/// The library would serve that file for every version of the name.
void check_not_shadowed(Context& context, const Target& target, const std::string& name,
                        std::int32_t timestamp);

}  // namespace stgctl
