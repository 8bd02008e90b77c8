#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "stg_types.h"
#include "tools/admin/entries.h"
#include "tools/admin/tree.h"
#include "tools/stgctl/context.h"
#include "tools/stgctl/report.h"

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
  std::string file;
  admin::sys::Info info;

  std::string path() const { return admin::sys::join(folder.path, file); }
};
Subject subject_of(const FoundEntry& entry);

/// The entries that match, with their sizes and times; nothing is changed.
/// @throws Failure kLockTimeout when an index stayed locked, kFailed when a folder could not be
/// read, kInterrupted after Ctrl-C.
std::vector<FoundEntry> find_entries(Context& context, admin::EntryQuery query);
/// The entries of one folder, in the order of its index; none when there is no such folder.
/// @throws as find_entries().
std::vector<FoundEntry> entries_of_folder(Context& context, const admin::DocumentFolder& folder);
/// The versions of one entry of a target, oldest stamp first.
std::vector<FoundEntry> find_versions(Context& context, const Target& target,
                                      const std::string& name);

/// The name under which the library adopts a file: its extension in lower case.
std::string adopted_name(std::string name);

/// @throws Failure kRefused when the folder holds a file that bears the logical name and is not
/// that very version: the library would take it for every version of the name.
void check_not_shadowed(Context& context, const Target& target, const std::string& name,
                        std::int32_t timestamp);

}  // namespace stgctl
