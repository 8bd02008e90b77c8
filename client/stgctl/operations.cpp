#include "client/stgctl/operations.h"

#include <set>

#include "client/stgctl/new_file.h"
#include "vu_file.h"
#include "vu_storage.h"

namespace stgctl {

namespace {

/// The free space if the system does not report one.
constexpr std::uint64_t kPlenty = std::numeric_limits<std::uint64_t>::max() / 2;

/// The free space of the tree's file system.
std::uint64_t free_bytes(Context& context) {
  const sys::FileSystem system = sys::file_system_of(context.tree().storage);
  return system.total_bytes == 0 ? kPlenty : system.free_bytes;
}

/// The space for a new file must be free before an old one is truncated for it.
void check_room(std::uint64_t needed, std::uint64_t free) {
  if (free < needed)
    fail("{} needed, {} free; free some space first", format_bytes(needed), format_bytes(free));
}

/// Replaces a version in place, through the library. A failed or killed copy leaves it truncated.
void overwrite_file(Context& context, StoreItem& item) {
  const auto look_up = [&] {
    const auto found = KnownEntries(context).find(folder_for(context, item.target, item.name),
                                                  item.name, item.timestamp);
    if (!found) fail("another process removed it; store it again");
    return *found;
  };
  item.old = look_up();
  const FoundEntry& old = *item.old;
  wait_until_free(context, old.folder.path, old.file);
  // All checks come before the file is truncated.
  check_room(item.size, free_bytes(context) + old.info.size);
  check_storable(context, item);
  const FoundParts parts(old.folder.path);
  // The other type of the user area would remove key lines with this name.
  const STG::RepositoryType type =
      item.target.area == admin::Area::kUser ? STG::UserRepository : item.target.type;
  context.forget_trouble();
  const bool copied = vu_storage::copyToStorage(item.source, item.target.library_owner, item.name,
                                                type, true, item.timestamp);
  const FoundEntry stored = look_up();
  if (!copied || stored.info.size != item.size)
    fail(
        "it could not be copied into the tree, and the version to be replaced is truncated; store "
        "it again{}",
        context.trouble());
  // A copy of a read-only file is read-only, and could never be replaced.
  if (stored.info.is_read_only) vu_file::chmodW(stored.path());
  if (stored.info.modify_time != sys::describe(item.source).modify_time) {
    context.out().warning(
        formatted("{} has the current time, not that of {}: its file belongs to another account",
                  shown(stored.path()), shown(item.source)));
  }
  // The file keeps its time, which can be older than its sub-parts. They would look up to date.
  parts.remove({old.file});
}

}  // namespace

// ---- sub-parts ---------------------------------------------------------------------------------

std::vector<std::string> FoundParts::of(const std::vector<std::string>& files) const {
  const std::set<std::string, std::less<>> wanted(files.begin(), files.end());
  std::vector<std::string> parts;
  for (const admin::Name& name : m_view.names()) {
    if (name.kind != sys::Kind::kFolder) continue;
    const std::uint32_t document = m_view.document_of(name.text);
    if (document != admin::FolderView::kNone && wanted.contains(m_view.names()[document].text))
      parts.emplace_back(name.text);
  }
  std::ranges::sort(parts);
  return parts;
}

void FoundParts::remove(const std::vector<std::string>& files) const {
  for (const std::string& part : of(files)) {
    const std::string path = m_view.path_of(part);
    vu_file::recurseRemoveDir(path);
    if (sys::describe(path).kind != sys::Kind::kMissing)
      fail("done, but its old sub-parts in {} could not be removed completely", shown(path));
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

admin::Sum count_below(const std::string& path, const std::function<void()>& at_each) {
  admin::Sum all;
  sys::Folder folder;
  if (!folder.open(path).ok()) return all;
  sys::Entry entry;
  while (folder.next(entry)) {
    if (at_each) at_each();
    all += entry.kind == sys::Kind::kFolder ? count_below(sys::join(path, entry.name), at_each)
                                            : admin::Sum{1, folder.describe(entry).size};
  }
  return all;
}

// ---- storing -----------------------------------------------------------------------------------

Subject subject_of(const StoreItem& item) {
  return subject_in(item.target.area, item.target.owner, item.name, item.timestamp);
}

void check_storable(Context& context, const StoreItem& item) {
  if (const os::Status readable = sys::probe_readable(item.source); !readable.ok())
    fail("{}: {}", shown(item.source), sys::text_of(readable));
  const std::string folder = folder_for(context, item.target, item.name).path;
  if (const std::string why = admin::why_not_storable(folder); !why.empty()) fail("{}", why);
  if (!item.old) return;
  const std::string path = item.old->path();
  // The library never makes a read-only file writable.
  if (const os::Status status = sys::probe_writable(path); !status.ok())
    fail("its file {} cannot be written: {}", shown(path), admin::why_not_writable(path, status));
}

StoreBatch::StoreBatch(Context& context, std::size_t most_files)
    : m_context(context), m_most_files(most_files), m_free(free_bytes(context)) {}

void StoreBatch::attempt(StoreItem& item, const std::function<void()>& step) {
  try {
    step();
  } catch (const Failure& failure) {
    item.failure = failure;
    if (failure.ends_work() && !m_end) m_end = failure;
  }
}

bool StoreBatch::take(StoreItem& item, const std::function<bool()>& judge) {
  attempt(item, [&] {
    if (judge()) stage(item);
  });
  return !m_end && ++m_taken < m_most_files && m_bytes <= kMostBytes && !Context::interrupted();
}

void StoreBatch::stage(StoreItem& item) {
  check_room(item.size, m_free + (item.old ? item.old->info.size : 0));
  m_bytes += item.size;
  Staged& staged = m_staged.emplace_back(Staged{&item, {}});
  admin::NewVersion& version = staged.version;
  if (item.old) version.replaces = item.old->file;
  if (item.size > m_free) {
    version.fate = admin::NewVersion::Fate::kInPlace;
    return;
  }
  const admin::DocumentFolder folder = folder_for(m_context, item.target, item.name);
  std::unique_ptr<admin::NewVersions>& versions = m_folders[folder.path];
  if (versions == nullptr)
    versions = std::make_unique<admin::NewVersions>(folder, m_context.locking());
  version.source = item.source;
  version.logical = item.name;
  version.timestamp = item.timestamp;
  if (versions->stage(version)) m_free -= item.size;
}

void StoreBatch::run(const std::function<void(const StoreItem&)>& before_overwrite) {
  std::vector<admin::NewVersions*> folders;
  for (const auto& [path, versions] : m_folders) folders.push_back(versions.get());
  admin::NewVersions::enter(folders);
  // The new file keeps its time, which can be older than its sub-parts. They would look up to date.
  std::map<std::string, std::vector<std::string>> replaced;
  for (const auto& [item, version] : m_staged) {
    if (item->old && version.fate == admin::NewVersion::Fate::kStored)
      replaced[item->old->folder.path].push_back(version.replaces);
  }
  for (const auto& [folder, files] : replaced) FoundParts(folder).try_to_remove(m_context, files);
  for (const Staged& staged : m_staged)
    attempt(*staged.item, [&] { settle(staged, before_overwrite); });
}

void StoreBatch::settle(const Staged& staged,
                        const std::function<void(const StoreItem&)>& before_overwrite) {
  using Fate = admin::NewVersion::Fate;
  StoreItem& item = *staged.item;
  const admin::NewVersion& version = staged.version;
  if (version.fate == Fate::kInPlace) {
    throw_end();
    if (before_overwrite) before_overwrite(item);
    overwrite_file(m_context, item);
  } else if (version.fate == Fate::kLocked) {
    Context::stop_if_interrupted();
    throw lock_missed(m_context, version.reason);
  } else if (version.fate != Fate::kStored) {
    fail("{}", version.reason);
  }
  item.path = sys::join(folder_for(m_context, item.target, item.name).path,
                        item.old ? item.old->file : version.file);
}

// ---- removing many -----------------------------------------------------------------------------

using Fate = admin::OldVersion::Fate;

Removal::Removal(const FoundEntry& old, std::function<bool(admin::LockedFile& file)> is_same)
    : entry(&old),
      version{{old.name, old.timestamp, old.file, Fate::kPending, ""}, std::move(is_same)} {}

std::string Removal::why_not_removed() const {
  const bool is_open = version.fate == Fate::kPending || version.fate == Fate::kLocked;
  return is_open ? "a lock was not obtained in time" : version.reason;
}

std::optional<Failure> remove_together(Context& context, const std::vector<Removal*>& removals) {
  std::map<std::string, std::vector<Removal*>> by_folder;
  for (Removal* const each : removals) by_folder[each->entry->folder.path].push_back(each);
  std::vector<admin::OldVersions> folders;
  // Read while the files exist: their names show which sub-parts belong to which file.
  std::deque<FoundParts> parts;
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

}  // namespace stgctl
