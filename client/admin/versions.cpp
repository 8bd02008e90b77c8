#include "client/admin/versions.h"

#include <algorithm>
#include <deque>
#include <limits>
#include <map>
#include <utility>

#include "client/admin/repair_text.h"
#include "client/admin/text.h"

namespace admin {

/// The names in an index, from one pass over its lines.
struct IndexNames {
  struct Entry {
    bool is_unknown = false;
    bool has_file = false;
    std::string_view stored;
    std::string file;
  };

  explicit IndexNames(const FolderView& view) {
    for (const LintedLine& line : IndexLint(view)) {
      if (Use& use = uses.try_emplace(line.stored, Use{line.key}).first->second;
          use.key != line.key)
        use.is_shared = true;
      if (is_bad(line.verdict)) continue;
      const bool is_unknown = line.verdict == Verdict::kUnknown;
      // A valid entry precedes an unknown one with the same key.
      if (is_unknown && entries.contains(line.key)) continue;
      entries[line.key] = {is_unknown, line.has_file, line.stored, std::string(line.file)};
    }
  }
  /// The valid entry with a key, or null.
  const Entry* find(std::string_view key) const {
    const auto found = entries.find(key);
    return found == entries.end() || found->second.is_unknown ? nullptr : &found->second;
  }

  /// The lines of any kind that have a physical name.
  struct Use {
    std::string_view key;    ///< of the first one
    bool is_shared = false;  ///< another one has another key
  };

  // The keys are views of the text of the index.
  std::map<std::string_view, Entry> entries;
  std::map<std::string_view, Use> uses;  ///< by physical names
};

namespace {

using Fate = ChangedVersion::Fate;

constexpr const char* kRemovedMeanwhile = "another program has removed it";
constexpr const char* kStoredMeanwhile = "another program has stored it";
constexpr const char* kChangedMeanwhile = "another program has changed it, so it stays";

std::string not_stored(const std::string& path, const std::string& why) {
  return "it cannot be stored: " + printable(path) + ": " + why;
}

/// Creates a folder and its parents. @p failed: the folder that could not be created.
os::Status make_folders(const std::string& path, std::string& failed) {
  if (sys::describe(path).kind == sys::Kind::kFolder) return {};
  const std::size_t at = path.rfind(sys::kSeparator);
  if (at != std::string::npos && at != 0) {
    if (const os::Status above = make_folders(path.substr(0, at), failed); !above.ok())
      return above;
  }
  const os::Status made = os::create_directory(path);
  if (made.ok() || sys::describe(path).kind == sys::Kind::kFolder) return {};
  failed = path;
  return made;
}

bool has_documents(const FolderView& view) {
  return std::ranges::any_of(view.names(), [](const Name& name) {
    return name.kind != sys::Kind::kFolder && !index_format::is_index_file(name.text);
  });
}

}  // namespace

void ChangedVersion::fail_to_write(const char* what, const std::string& path,
                                   const os::Status& status) {
  end(Fate::kFailed, std::string(what) + " " + printable(path) +
                         " cannot be written: " + why_not_writable(path, status));
}

void ChangedVersion::refuse(const char* what, const std::string& path, const os::Status& status) {
  if (status.failure() == os::Failure::kLocked) return end(Fate::kLocked, path);
  fail_to_write(what, path, status);
}

void ChangedIndex::save(const std::vector<ChangedIndex*>& all) {
  std::vector<LockedFile::NewLines> saves;
  std::vector<ChangedIndex*> changed;
  for (ChangedIndex* const each : all) {
    if (each->new_text.empty()) continue;
    changed.push_back(each);
    saves.push_back({&each->file, each->view.index_text(), each->new_text, {}});
  }
  LockedFile::replace_lines(saves);
  for (std::size_t i = 0; i < changed.size(); ++i) {
    std::string now;
    // If only the last steps of the replacement failed, the new text is valid.
    const bool holds = saves[i].status.ok() ||
                       (changed[i]->file.read_text(now).ok() && now == changed[i]->new_text);
    changed[i]->saved = holds ? os::Status() : saves[i].status;
  }
}

// ---- staging -----------------------------------------------------------------------------------

bool NewVersions::stage(NewVersion& version) {
  const auto failed = [&](const std::string& path, const std::string& why) {
    version.end(Fate::kFailed, not_stored(path, why));
    return false;
  };
  if (const std::string old = path_of(version.replaces); !version.replaces.empty()) {
    if (const os::Status status = sys::probe_writable(old); !status.ok()) {
      version.fail_to_write("its file", old, status);
      return false;
    }
  }
  std::string place;
  if (const os::Status made = make_folders(m_folder.path, place); !made.ok()) {
    const bool is_file = sys::describe(place).kind == sys::Kind::kFile;
    return failed(place, is_file ? "a file is in the place of a folder" : sys::text_of(made));
  }
  if (!m_staging.is_made()) {
    if (const os::Status made = m_staging.make(m_folder.path); !made.ok())
      return failed(m_folder.path, sys::text_of(made));
  }
  std::string copy = sys::join(m_staging.path(), std::to_string(m_items.size() + 1));
  const os::Status copied = os::copy(version.source, copy, os::IfExists::kFail);
  if (!copied.ok()) return failed(version.source, sys::reason_of(copied));
  // The copy of a read-only file is read-only. The library could never replace it.
  if (sys::describe(copy).is_read_only) static_cast<void>(os::make_writable(copy));
  if (!version.replaces.empty() && !sys::take_over_owner(path_of(version.replaces), copy).ok()) {
    static_cast<void>(os::remove_file(copy));
    version.end(Fate::kInPlace);
    return false;
  }
  m_items.push_back({&version, std::move(copy), "", false});
  return true;
}

// ---- entering ----------------------------------------------------------------------------------

bool NewVersions::any_new_pending() const {
  return std::ranges::any_of(m_items, &Item::is_new_pending);
}

void NewVersions::fail_pending(const std::string& reason) {
  for (Item& item : m_items) {
    if (!item.is_pending()) continue;
    take_back(item);
    item.version->end(Fate::kFailed, reason);
  }
}

/// For the steps before move_files(): nothing has to be taken back.
void NewVersions::refuse(const char* what, const std::string& path, const os::Status& status) {
  for (Item& item : m_items) {
    if (item.is_pending()) item.version->refuse(what, path, status);
  }
}

void NewVersions::take_back(Item& item) {
  if (!item.is_moved) return;
  static_cast<void>(os::remove_file(path_of(item.version->file)));
  item.is_moved = false;
}

void NewVersions::enter(const std::vector<NewVersions*>& folders) {
  const auto flush = [&](const std::vector<std::string>& files,
                         const std::vector<std::string>& names) {
    const os::Status flushed = sys::flush_files(files, names);
    if (flushed.ok()) return;
    for (NewVersions* const each : folders)
      each->fail_pending("it could not be flushed to the device: " + sys::text_of(flushed));
  };
  std::vector<std::string> copies;
  for (const NewVersions* const each : folders) {
    for (const Item& item : each->m_items) copies.push_back(item.copy);
  }
  flush(copies, {});
  std::vector<std::string> counters;
  std::vector<std::string> names;
  for (NewVersions* const each : folders) {
    each->prepare();
    if (!each->any_new_pending()) continue;
    counters.push_back(each->path_of(index_format::kCounterFile));
    names.push_back(each->m_folder.path);
  }
  // The name of a file must be on the device before its entry.
  flush(counters, names);
  std::vector<ChangedIndex*> indexes;
  for (NewVersions* const each : folders) {
    if (each->any_new_pending()) each->m_index.new_text = each->text_with_lines();
    indexes.push_back(&each->m_index);
  }
  ChangedIndex::save(indexes);
  std::vector<std::string> replaced;
  for (NewVersions* const each : folders) {
    each->judge_save();
    if (each->replace_files()) replaced.push_back(each->m_folder.path);
    each->m_index.file.close();
  }
  if (const os::Status flushed = sys::flush_files({}, replaced); !flushed.ok()) {
    for (NewVersions* const each : folders) each->doubt_replaced(sys::text_of(flushed));
  }
  // Required: after all indexes are unlocked. Locking one while another is locked, against the
  // order of the paths, can deadlock with another program.
  for (NewVersions* const each : folders) each->verify();
}

void NewVersions::prepare() {
  if (std::ranges::none_of(m_items, &Item::is_pending) || !open_index()) return;
  const IndexNames names(m_index.view);
  drop_taken(names);
  if (!any_new_pending() || !draw_numbers(names)) return;
  move_files();
}

bool NewVersions::open_index() {
  const std::string path = path_of(index_format::kIndexFile);
  const sys::Kind kind = sys::describe(path).kind;
  const bool is_new = kind == sys::Kind::kMissing || kind == sys::Kind::kUnknown;
  os::Status status = m_index.file.open(path, LockedFile::For::kCreating, m_locking);
  if (status.ok() && is_new && m_index.file.size() == 0) {
    // An empty index would look like one that lost its entries.
    status = m_index.file.write_at(0, " ");
    if (!status.ok()) static_cast<void>(os::remove_file(path));
  }
  if (status.ok()) status = m_index.view.load_locked(m_folder, m_index.file);
  if (status.ok()) return is_sound();
  if (const os::Status& listed = m_index.view.status(); !listed.ok()) {
    fail_pending(printable(m_folder.path) + " cannot be listed: " + sys::text_of(listed));
  } else {
    refuse("the index", path, status);
  }
  return false;
}

/// Whether the index is undamaged. If it is, readers find new entries, and a save does not remove
/// what is left of lost names. An empty index in a folder without documents is valid: a killed
/// process had just created it.
bool NewVersions::is_sound() {
  const std::string path = printable(path_of(index_format::kIndexFile));
  if (m_index.view.index_state() == IndexState::kNoBytes && has_documents(m_index.view)) {
    fail_pending(path +
                 " has lost its entries; restore them first with 'stgctl index "
                 "restore', or see 'stgctl check'");
    return false;
  }
  for (const LintedLine& line : IndexLint(m_index.view)) {
    if (line.verdict != Verdict::kNoSeparator || line.is_blank()) continue;
    fail_pending(path + " is damaged in line " + std::to_string(line.number) +
                 "; run 'stgctl repair' first");
    return false;
  }
  return true;
}

/// Drops versions whose entry another program created or changed since they were staged.
void NewVersions::drop_taken(const IndexNames& names) {
  for (Item& item : m_items) {
    if (!item.is_pending()) continue;
    NewVersion& version = *item.version;
    const IndexNames::Entry* const found = names.find(version.key());
    if (found == nullptr && names.entries.contains(version.key())) {
      version.end(Fate::kFailed, "the system could not check whether it exists");
    } else if (found == nullptr || !found->has_file) {
      if (!item.is_new()) version.end(Fate::kMeanwhile, kRemovedMeanwhile);
    } else if (found->file != version.replaces) {
      version.end(Fate::kMeanwhile, kStoredMeanwhile);
    }
  }
}

bool NewVersions::draw_numbers(const IndexNames& names) {
  const std::string path = path_of(index_format::kCounterFile);
  LockedFile counter;
  std::string text;
  os::Status status = counter.open(path, LockedFile::For::kCreating, m_locking);
  if (status.ok()) status = counter.read_text(text);
  std::int32_t last = std::max({counter_in(text), highest_number(m_index.view), 0});
  if (status.ok()) {
    for (Item& item : m_items) {
      if (!item.is_new_pending()) continue;
      do {
        if (last == std::numeric_limits<std::int32_t>::max()) {
          fail_pending(printable(path) +
                       " contains the highest possible number, so no new file can be named");
          return false;
        }
        item.stored = index_format::generated_name(++last);
        item.version->file = index_format::file_name_of(item.version->key(), item.stored);
      } while (names.uses.contains(item.stored) || item.stored == index_format::kTroubleName ||
               m_index.view.find(item.stored) != FolderView::kNone ||
               m_index.view.find(item.version->file) != FolderView::kNone);
    }
    const std::string now = index_format::generated_name(last);
    status = counter.write_at(0, now);
    if (status.ok() && text.size() > now.size()) status = counter.cut_at(now.size());
  }
  if (status.ok()) return true;
  refuse("the counter", path, status);
  return false;
}

void NewVersions::move_files() {
  for (Item& item : m_items) {
    if (!item.is_new_pending()) continue;
    const os::Status moved = os::rename(item.copy, path_of(item.version->file));
    item.is_moved = moved.ok();
    if (moved.ok()) continue;
    item.version->end(Fate::kFailed, not_stored(path_of(item.version->file), sys::text_of(moved)));
  }
}

/// The text of the index with the new entries, in the library's order. Dangling entries stay,
/// except those with a new key. Unknown entries stay. One of them may turn out to be the first
/// entry with its key, so a new line takes the place of the valid one that it replaces. Example for
/// a new line "a/3":
///
///     a/1 (unknown), a/2 (valid)   becomes   a/1, a/3
///     a/2 (valid), a/1 (unknown)   becomes   a/3, a/1
std::string NewVersions::text_with_lines() const {
  std::map<std::string, std::string, std::less<>> added;
  for (const Item& item : m_items) {
    if (!item.is_new_pending()) continue;
    const std::string key = item.version->key();
    added.emplace(key, key + "/" + item.stored);
  }
  std::vector<std::string> lines;
  for (const LintedLine& line : IndexLint(m_index.view)) {
    if (line.is_blank()) continue;
    const auto ours = added.find(line.key);
    if (ours == added.end() || line.verdict == Verdict::kUnknown) {
      lines.emplace_back(line.raw);
    } else if (line.verdict == Verdict::kEntry) {
      lines.push_back(std::exchange(ours->second, {}));
    }
  }
  for (auto& [key, line] : added) {
    if (!line.empty()) lines.push_back(std::move(line));
  }
  sort_by_key(lines);
  return index_text_of(lines);
}

void NewVersions::judge_save() {
  if (!m_index.saved.ok()) {
    fail_pending("the index " + printable(path_of(index_format::kIndexFile)) +
                 " cannot be written: " + sys::text_of(m_index.saved));
    return;
  }
  for (Item& item : m_items) {
    if (item.is_new_pending()) item.version->fate = Fate::kStored;
  }
}

/// Does not wait for locks on documents while the index is locked: a process that has a document
/// open may wait for the index.
/// @return whether any file was replaced.
bool NewVersions::replace_files() {
  bool any = false;
  for (Item& item : m_items) {
    if (!item.is_pending() || item.is_new()) continue;
    NewVersion& version = *item.version;
    version.file = version.replaces;
    const std::string path = path_of(version.file);
    LockedFile old;
    const os::Status locked = old.open(path, LockedFile::For::kChanging, m_locking.at_once());
    if (!locked.ok() && locked.failure() != os::Failure::kLocked) {
      version.fail_to_write("its file", path, locked);
      continue;
    }
    if constexpr (!sys::kReplacesOpenFiles) old.close();
    const bool is_replaced = locked.ok() && sys::replace_file(item.copy, path).ok();
    version.fate = is_replaced ? Fate::kStored : Fate::kInPlace;
    any = any || is_replaced;
  }
  return any;
}

void NewVersions::doubt_replaced(const std::string& why) {
  for (Item& item : m_items) {
    if (item.is_new() || item.version->fate != Fate::kStored) continue;
    item.version->end(Fate::kFailed,
                      "it is replaced, but a power failure may bring the old file back: " + why);
  }
}

/// Another program may have loaded the index before this save and stored the same key after it. Its
/// save keeps its own entry. The file that was created here is then an orphan and is removed.
void NewVersions::verify() {
  const auto is_stored = [](const Item& item) {
    return item.is_new() && item.version->fate == Fate::kStored;
  };
  if (std::ranges::none_of(m_items, is_stored)) return;
  FolderView view;
  view.load(m_folder, m_locking);
  if (view.index_state() != IndexState::kRead) return;
  const IndexNames names(view);
  for (Item& item : m_items) {
    if (!is_stored(item)) continue;
    const IndexNames::Entry* const entry = names.find(item.version->key());
    if (entry != nullptr && entry->stored == item.stored) continue;
    if (!names.uses.contains(item.stored)) take_back(item);
    item.version->end(Fate::kMeanwhile, entry != nullptr ? kStoredMeanwhile : kRemovedMeanwhile);
  }
}

// ---- removing -----------------------------------------------------------------------------------

namespace {

/// Removes versions of one folder.
class Removal {
 public:
  Removal(const OldVersions& what, const sys::Locking& locking)
      : m_what(what), m_locking(locking) {}

  /// Removes the files; the index stays locked. After it is saved, it has no entries of them.
  /// @return false if the index was not locked in time.
  bool remove_files();
  ChangedIndex& index() { return m_index; }
  void judge_save();

 private:
  /// The physical names of removed entries by their keys.
  using Removed = std::map<std::string, std::string_view, std::less<>>;

  bool remove(OldVersion& version, const IndexNames& names);
  std::string text_without(const Removed& removed) const;

  const OldVersions& m_what;
  const sys::Locking& m_locking;
  ChangedIndex m_index;
};

bool Removal::remove_files() {
  const std::string path = sys::join(m_what.folder.path, index_format::kIndexFile);
  os::Status status = m_index.file.open(path, LockedFile::For::kChanging, m_locking);
  if (status.ok()) status = m_index.view.load_locked(m_what.folder, m_index.file);
  if (!status.ok()) {
    for (OldVersion* const each : m_what.versions) each->refuse("the index", path, status);
    return status.failure() != os::Failure::kLocked;
  }
  const IndexNames names(m_index.view);
  Removed removed;
  for (OldVersion* const each : m_what.versions) {
    if (remove(*each, names)) removed.emplace(each->key(), names.find(each->key())->stored);
  }
  if (!removed.empty()) m_index.new_text = text_without(removed);
  return true;
}

/// The text of the index without the removed entries. As in a save of the library, another line
/// with such a key stays if its file exists or may exist: it is the entry from now on.
std::string Removal::text_without(const Removed& removed) const {
  std::vector<std::string> lines;
  // The listing of the view shows the removed files.
  FolderFiles files(m_what.folder.path);
  for (const LintedLine& line : IndexLint(m_index.view)) {
    if (line.is_blank()) continue;
    const auto found = removed.find(line.key);
    const bool is_dropped = found != removed.end() && line.verdict != Verdict::kUnknown &&
                            (line.stored == found->second ||
                             state_by_probing(line.key, line.stored, files) == LineState::kMissing);
    if (!is_dropped) lines.emplace_back(line.raw);
  }
  return index_text_of(lines);
}

/// @return whether its entry can be removed.
bool Removal::remove(OldVersion& version, const IndexNames& names) {
  const IndexNames::Entry* const entry = names.find(version.key());
  if (entry == nullptr || entry->file != version.file) {
    version.end(Fate::kMeanwhile, entry != nullptr ? kChangedMeanwhile : kRemovedMeanwhile);
    return false;
  }
  // Do not wait while the index is locked: a process that has the document open may wait for the
  // index.
  const std::string path = m_index.view.path_of(version.file);
  const auto stays = [&](Fate fate, const std::string& why) {
    version.end(fate, "its file " + printable(path) + " stays: " + why);
    return false;
  };
  LockedFile file;
  const os::Status locked = file.open(path, LockedFile::For::kChanging, m_locking.at_once());
  if (!locked.ok()) {
    const bool is_used = locked.failure() == os::Failure::kLocked;
    return stays(is_used ? Fate::kInUse : Fate::kFailed, why_not_writable(path, locked));
  }
  // Writers wait for this lock, so the file cannot change between this check and its removal.
  if (!version.is_same(file)) {
    version.end(Fate::kMeanwhile, kChangedMeanwhile);
    return false;
  }
  if constexpr (!sys::kReplacesOpenFiles) file.close();
  // A file that another entry also names stays.
  if (!names.uses.at(entry->stored).is_shared) {
    if (const os::Status removed = os::remove_file(path); !removed.ok())
      return stays(Fate::kFailed, sys::text_of(removed));
  }
  version.fate = Fate::kRemoved;
  return true;
}

void Removal::judge_save() {
  if (m_index.saved.ok()) return;
  for (OldVersion* const each : m_what.versions) {
    if (each->fate == Fate::kRemoved)
      each->end(Fate::kFailed, "its file is removed, but its entry is still in the index: " +
                                   sys::text_of(m_index.saved));
  }
}

}  // namespace

void remove_old_versions(const std::vector<OldVersions>& folders, const sys::Locking& locking) {
  std::deque<Removal> all;
  std::vector<ChangedIndex*> indexes;
  for (const OldVersions& each : folders) {
    Removal& removal = all.emplace_back(each, locking);
    indexes.push_back(&removal.index());
    if (!removal.remove_files()) break;
  }
  ChangedIndex::save(indexes);
  for (Removal& each : all) each.judge_save();
}

}  // namespace admin
