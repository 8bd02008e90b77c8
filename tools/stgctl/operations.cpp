#include "tools/stgctl/operations.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "stg_index.h"
#include "tools/stgctl/exit_codes.h"
#include "tools/stgctl/lock_wait.h"
#include "tools/stgctl/text.h"
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

/// The room that a new file takes must be there before an old one is emptied for it.
void check_room(const std::string& folder, std::uint64_t needed, std::uint64_t freed) {
  const sys::FileSystem system = sys::file_system_of(folder);
  if (system.total_bytes == 0 || system.free_bytes + freed >= needed) return;
  fail(formatted("{} needed, {} free: make room first", format_bytes(needed),
                 format_bytes(system.free_bytes)));
}

/// What the tree shows of a version by now.
std::optional<FoundEntry> look_up(Context& context, const Target& target, const std::string& name,
                                  std::int32_t timestamp) {
  for (FoundEntry& entry : find_versions(context, target, name)) {
    if (entry.timestamp == timestamp) return std::move(entry);
  }
  return std::nullopt;
}

/// Takes back a version that could not be filled. A copy that broke off may have removed the file
/// itself: then the next rewrite of the index drops its line.
void take_back(const std::string& folder, const std::string& name, std::int32_t timestamp,
               bool has_file) {
  if (has_file) {
    STGIndex::remove(folder, name, timestamp);
  } else if (sys::describe(sys::join(folder, index_format::kIndexFile)).kind == sys::Kind::kFile) {
    STGIndex::updateIndexFile(folder);
  }
}

void remove_parts(const FoundEntry& entry, const std::vector<std::string>& parts) {
  for (const std::string& part : parts) {
    const std::string path = sys::join(entry.folder.path, part);
    if (sys::describe(path).kind == sys::Kind::kMissing) continue;
    vu_file::recurseRemoveDir(path);
    if (sys::describe(path).kind != sys::Kind::kMissing) {
      fail("done, but its old parts in " + shown(path) + " could not be removed as a whole");
    }
  }
}

}  // namespace

void store_file(Context& context, const Target& target, const std::string& source,
                std::uint64_t size, const std::string& name, std::int32_t timestamp) {
  const std::string folder =
      admin::folder_for(context.tree(), target.area, target.owner, name).path;
  const std::optional<FoundEntry> old = look_up(context, target, name, timestamp);
  wait_until_free(context, folder, old ? old->file : "");
  check_room(context.tree().storage, size, old ? old->info.size : 0);
  const std::vector<std::string> old_parts = old ? part_folders(*old) : std::vector<std::string>();
  // The other type of the user area would cut key lines that hold the name.
  const STG::RepositoryType type =
      target.area == admin::Area::kUser ? STG::UserRepository : target.type;

  const bool copied =
      vu_storage::copyToStorage(source, target.library_owner, name, type, true, timestamp);
  const std::optional<FoundEntry> stored = look_up(context, target, name, timestamp);
  if (stored && copied && stored->info.size == size) {
    // A copy of a read-only file is read-only, and could never be replaced.
    if (stored->info.is_read_only) vu_file::chmodW(stored->path());
    // The file keeps its time, which may be older than these: they would pass for up to date.
    return remove_parts(*stored, old_parts);
  }
  if (!old) take_back(folder, name, timestamp, stored.has_value());
  fail(old ? "it could not be copied into the tree, and the version it was to replace is cut; "
             "store it again "
             "(--trace m tells why)"
           : "it could not be copied into the tree; --trace m tells why");
}

std::vector<std::string> part_folders(const FoundEntry& entry) {
  const std::vector<std::string> names = names_in(entry.folder.path);
  const std::string prefix = entry.file + "_";
  std::vector<std::string> parts;
  for (const std::string& name : names) {
    if (!name.starts_with(prefix)) continue;
    if (sys::describe(sys::join(entry.folder.path, name)).kind != sys::Kind::kFolder) continue;
    // "a_b.kdc_" holds the parts of "a_b.kdc", not those of "a".
    const bool of_another = std::any_of(names.begin(), names.end(), [&](const std::string& other) {
      return other.size() > entry.file.size() && other.size() < name.size() &&
             name.starts_with(other + "_");
    });
    if (!of_another) parts.push_back(name);
  }
  return parts;
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

void remove_version(Context& context, const FoundEntry& entry, KeyLines lines) {
  const Target target = target_of(context, entry.folder);
  const std::vector<std::string> parts = part_folders(entry);
  wait_until_free(context, entry.folder.path);
  if (lines == KeyLines::kRemove) {
    vu_storage::RemoveFile(target.library_owner, entry.name, target.type, entry.timestamp);
  } else {
    STGIndex::remove(entry.folder.path, entry.name, entry.timestamp);
  }
  if (sys::describe(entry.path()).kind != sys::Kind::kMissing) {
    fail("its file could not be removed; is it open elsewhere, or the folder read-only?");
  }
  remove_parts(entry, parts);
}

}  // namespace stgctl
