#include "client/stgctl/operations.h"

#include <algorithm>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "client/admin/system.h"
#include "client/stgctl/context.h"
#include "client/stgctl/exit_codes.h"
#include "client/stgctl/text.h"
#include "stg_index.h"
#include "vu_file.h"
#include "vu_storage.h"

namespace stgctl {

namespace {

namespace sys = admin::sys;

[[noreturn]] void fail(const std::string& text) { throw Failure(Exit::kFailed, text); }

/// The names in a folder, sorted.
std::vector<std::string> names_in(const std::string& path) {
  std::vector<std::string> names;
  sys::Folder folder;
  if (!folder.open(path).ok()) return names;
  sys::Entry entry;
  while (folder.next(entry)) names.emplace_back(entry.name);
  std::sort(names.begin(), names.end());
  return names;
}

/// The free space if the system does not report one.
constexpr std::uint64_t kPlenty = std::numeric_limits<std::uint64_t>::max() / 2;

/// The free space of the tree's file system.
std::uint64_t free_bytes(Context& context) {
  const sys::FileSystem system = sys::file_system_of(context.tree().storage);
  return system.total_bytes == 0 ? kPlenty : system.free_bytes;
}

/// The space for a new file must be free before an old one is truncated for it.
void check_room(std::uint64_t needed, std::uint64_t free) {
  if (free >= needed) return;
  fail(formatted("{} needed, {} free; free some space first", format_bytes(needed),
                 format_bytes(free)));
}

/// The current state of a version in the tree.
std::optional<FoundEntry> look_up(Context& context, const Target& target, const std::string& name,
                                  std::int32_t timestamp) {
  for (FoundEntry& entry : find_versions(context, target, name)) {
    if (entry.timestamp == timestamp) return std::move(entry);
  }
  return std::nullopt;
}

}  // namespace

// ---- parts -------------------------------------------------------------------------------------

FoundParts::FoundParts(std::string folder) : m_folder(std::move(folder)) {
  m_names = names_in(m_folder);
}

std::vector<std::string> FoundParts::of(const std::vector<std::string>& files) const {
  const std::set<std::string, std::less<>> wanted(files.begin(), files.end());
  std::vector<std::string> parts;
  for (const std::string& name : m_names) {
    // The document is the longest name before an underscore that exists in the folder.
    std::size_t at = name.rfind('_');
    while (at != std::string::npos && at > 0 &&
           !std::binary_search(m_names.begin(), m_names.end(), name.substr(0, at)))
      at = name.rfind('_', at - 1);
    if (at == std::string::npos || at == 0 || !wanted.contains(name.substr(0, at))) continue;
    if (sys::describe(sys::join(m_folder, name)).kind == sys::Kind::kFolder) parts.push_back(name);
  }
  return parts;
}

void FoundParts::remove(const std::vector<std::string>& files) const {
  for (const std::string& part : of(files)) {
    const std::string path = sys::join(m_folder, part);
    vu_file::recurseRemoveDir(path);
    if (sys::describe(path).kind != sys::Kind::kMissing)
      fail("done, but its old sub-parts in " + shown(path) + " could not be removed completely");
  }
}

void FoundParts::try_to_remove(Context& context, const std::vector<std::string>& files) const {
  try {
    remove(files);
  } catch (const Failure& failure) {
    context.out().warning(failure.what());
  }
}

std::vector<std::string> part_folders(const FoundEntry& entry) {
  return FoundParts(entry.folder.path).of({entry.file});
}

// ---- batches -----------------------------------------------------------------------------------

StoreBatch::StoreBatch(Context& context) : m_context(context), m_free(free_bytes(context)) {}

admin::NewVersion& StoreBatch::stage(const Target& target, const StoreItem& item,
                                     const std::string& replaces) {
  const admin::DocumentFolder folder =
      admin::folder_for(m_context.tree(), target.area, target.owner, item.name);
  std::unique_ptr<admin::NewVersions>& versions = m_folders[folder.path];
  if (versions == nullptr)
    versions = std::make_unique<admin::NewVersions>(folder, m_context.locking());
  admin::NewVersion& version = m_versions.emplace_back();
  version.source = item.source;
  version.logical = item.name;
  version.timestamp = item.timestamp;
  version.replaces = replaces;
  if (versions->stage(version)) m_free -= std::min(item.size, m_free);
  return version;
}

const admin::NewVersion& StoreBatch::add(const Target& target, const StoreItem& item) {
  check_room(item.size, m_free);
  return stage(target, item, "");
}

const admin::NewVersion& StoreBatch::add_replacing(const Target& target, const StoreItem& item,
                                                   const FoundEntry& old) {
  check_room(item.size, m_free + old.info.size);
  if (item.size > m_free) {
    admin::NewVersion& version = m_versions.emplace_back();
    version.replaces = old.file;
    version.fate = admin::NewVersion::Fate::kInPlace;
    return version;
  }
  const admin::NewVersion& version = stage(target, item, old.file);
  m_replaced.emplace_back(&version, old.folder.path);
  return version;
}

void StoreBatch::run() {
  std::vector<admin::NewVersions*> folders;
  for (const auto& [path, versions] : m_folders) folders.push_back(versions.get());
  admin::NewVersions::enter(folders);
  // The new file keeps its time, which can be older than its sub-parts. They would look up to date.
  std::map<std::string, std::vector<std::string>> files;
  for (const auto& [version, folder] : m_replaced) {
    if (version->fate == admin::NewVersion::Fate::kStored)
      files[folder].push_back(version->replaces);
  }
  for (const auto& [folder, replaced] : files)
    FoundParts(folder).try_to_remove(m_context, replaced);
}

Failure failure_of(Context& context, const admin::NewVersion& version) {
  if (version.fate != admin::NewVersion::Fate::kLocked) return {Exit::kFailed, version.reason};
  if (Context::interrupted()) return {Exit::kInterrupted, "interrupted"};
  return lock_missed(context, version.reason);
}

// ---- single versions ---------------------------------------------------------------------------

namespace {

/// Why an existing version could not be overwritten, or empty.
std::string why_not_replaceable(const FoundEntry& old) {
  if (std::string why = admin::why_not_storable(old.folder.path); !why.empty()) return why;
  const os::Status status = sys::probe_writable(old.path());
  if (status.ok()) return {};
  return formatted("its file {} cannot be written: {}", shown(old.path()),
                   admin::why_not_usable(old.path(), status));
}

}  // namespace

void store_file(Context& context, const Target& target, const StoreItem& item) {
  StoreBatch batch(context);
  const std::optional<FoundEntry> old = look_up(context, target, item.name, item.timestamp);
  const admin::NewVersion& version =
      old ? batch.add_replacing(target, item, *old) : batch.add(target, item);
  batch.run();
  if (version.fate == admin::NewVersion::Fate::kInPlace)
    return overwrite_file(context, target, item);
  if (version.fate != admin::NewVersion::Fate::kStored) throw failure_of(context, version);
}

void overwrite_file(Context& context, const Target& target, const StoreItem& item) {
  const std::optional<FoundEntry> old = look_up(context, target, item.name, item.timestamp);
  if (!old) fail("another process removed it; store it again");
  wait_until_free(context, old->folder.path, old->file);
  check_room(item.size, free_bytes(context) + old->info.size);
  // The library never makes a read-only file writable, so check before the file is truncated.
  if (const std::string why = why_not_replaceable(*old); !why.empty()) fail(why);
  if (const os::Status readable = sys::probe_readable(item.source); !readable.ok())
    fail(formatted("{}: {}", shown(item.source), sys::text_of(readable)));
  const FoundParts parts(old->folder.path);
  // The other type of the user area would remove key lines with this name.
  const STG::RepositoryType type =
      target.area == admin::Area::kUser ? STG::UserRepository : target.type;

  context.forget_trouble();
  const bool copied = vu_storage::copyToStorage(item.source, target.library_owner, item.name, type,
                                                true, item.timestamp);
  const std::optional<FoundEntry> stored = look_up(context, target, item.name, item.timestamp);
  if (stored && copied && stored->info.size == item.size) {
    // A copy of a read-only file is read-only, and could never be replaced.
    if (stored->info.is_read_only) vu_file::chmodW(stored->path());
    if (stored->info.modify_time != sys::describe(item.source).modify_time) {
      context.out().warning(
          formatted("{} has the current time, not that of {}: its file belongs to another account",
                    shown(stored->path()), shown(item.source)));
    }
    // The file keeps its time, which can be older than its sub-parts. They would look up to date.
    return parts.remove({old->file});
  }
  if (!stored) fail("another process removed it; store it again");
  fail(
      "it could not be copied into the tree, and the version to be replaced is truncated; store it "
      "again" +
      context.trouble());
}

std::vector<std::string> key_files_at_risk(Context& context, const FoundEntry& entry) {
  std::vector<std::string> at_risk;
  for (const FoundEntry& each : entries_of_folder(context, entry.folder)) {
    if (each.timestamp != 0) continue;
    const bool is_key_file =
        each.name.ends_with(".ctg") ||
        (entry.folder.area == admin::Area::kUser && each.name == "attribut.txt");
    if (!is_key_file) continue;
    std::string text;
    if (!sys::read_file(each.path(), context.locking(), text).ok()) continue;
    const std::size_t at = text.find(entry.name);
    if (at == std::string::npos) continue;
    const std::size_t end = at + entry.name.size();
    const bool starts_line = at == 0 || text[at - 1] == '\n';
    const bool ends_name =
        end == text.size() || text[end] == '=' || text[end] == '\n' || text[end] == '\r';
    if (!starts_line || !ends_name) at_risk.push_back(each.name);
  }
  return at_risk;
}

namespace {

/// Why a version cannot be removed, or empty. A check after the removal would be too late: the file
/// would be gone, and its entry would stay.
std::string why_not_removable(const FoundEntry& entry) {
  for (const admin::Obstacle& each : admin::obstacles_to_writing(entry.folder.path)) {
    if (each.kind == admin::Obstacle::Kind::kCounter) continue;
    return formatted("it cannot be removed: {}: {}", shown(each.path), each.why);
  }
  return {};
}

/// Whether the index still has an entry of the version, wherever its file is.
bool has_line(Context& context, const FoundEntry& entry) {
  admin::FolderView view;
  view.load(entry.folder, context.locking());
  admin::IndexLint lint;
  lint.start(view);
  admin::LintedLine line;
  const std::string key = index_format::key_of(entry.name, entry.timestamp);
  while (lint.next(line)) {
    if (line.key == key) return true;
  }
  return false;
}

}  // namespace

void remove_version(Context& context, const FoundEntry& entry, KeyLines lines) {
  const Target target = target_of(context, entry.folder);
  const FoundParts parts(entry.folder.path);
  wait_until_free(context, entry.folder.path);
  if (const std::string why = why_not_removable(entry); !why.empty()) fail(why);
  context.forget_trouble();
  if (lines == KeyLines::kRemove) {
    vu_storage::RemoveFile(target.library_owner, entry.name, target.type, entry.timestamp);
  } else {
    STGIndex::remove(entry.folder.path, entry.name, entry.timestamp);
  }
  if (sys::describe(entry.path()).kind != sys::Kind::kMissing)
    fail("its file could not be removed" + context.trouble());
  if (has_line(context, entry))
    fail("its file is removed, but its entry is still in the index" + context.trouble());
  parts.remove({entry.file});
}

using Fate = admin::OldVersion::Fate;

// ---- removing many -----------------------------------------------------------------------------

Removal removal_of(const FoundEntry& entry, std::function<bool(admin::LockedFile& file)> is_same) {
  return {&entry,
          {entry.name, entry.timestamp, entry.file, std::move(is_same), Fate::kPending, ""}};
}

std::optional<Failure> remove_together(Context& context, const std::vector<Removal*>& removals) {
  std::map<std::string, std::vector<Removal*>> by_folder;
  for (Removal* const each : removals) by_folder[each->entry->folder.path].push_back(each);
  std::vector<admin::OldVersions> folders;
  // Read while the files exist: their names show which sub-parts belong to which file.
  std::vector<FoundParts> parts;
  for (const auto& [path, of_folder] : by_folder) {
    admin::OldVersions& folder = folders.emplace_back();
    folder.folder = of_folder.front()->entry->folder;
    for (Removal* const each : of_folder) folder.versions.push_back(&each->version);
    parts.emplace_back(path);
  }
  admin::remove_old_versions(folders, context.locking());
  std::optional<Failure> end;
  for (std::size_t i = 0; i < folders.size(); ++i) {
    std::vector<std::string> gone;
    for (const admin::OldVersion* const version : folders[i].versions) {
      if (version->fate == Fate::kRemoved) gone.push_back(version->file);
      if (version->fate == Fate::kLocked && !end) end = lock_missed(context, version->reason);
    }
    parts[i].try_to_remove(context, gone);
  }
  if (end && Context::interrupted()) end = Failure(Exit::kInterrupted, "interrupted");
  return end;
}

std::string why_not_removed(const Removal& removal) {
  const Fate fate = removal.version.fate;
  const bool is_open = fate == Fate::kPending || fate == Fate::kLocked;
  return is_open ? "a lock was not obtained in time" : removal.version.reason;
}

}  // namespace stgctl
