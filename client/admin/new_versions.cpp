#include "client/admin/versions.h"

#include <algorithm>
#include <limits>
#include <map>
#include <utility>

#include "client/admin/folder_view.h"
#include "client/admin/repair_text.h"
#include "client/admin/system.h"
#include "client/admin/text.h"
#include "index/index_format.h"

namespace admin {

namespace {

using Fate = NewVersion::Fate;

std::string key_of(const NewVersion& version) {
  return index_format::key_of(version.logical, version.timestamp);
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

/// Overwrites the number in a counter. The caller flushes it.
os::Status write_number(LockedFile& counter, const std::string& before, const std::string& now) {
  const os::Status written = counter.write_at(0, now);
  return written.ok() && before.size() > now.size() ? counter.cut_at(now.size()) : written;
}

bool has_documents(const FolderView& view) {
  return std::ranges::any_of(view.names(), [](const Name& name) {
    return name.kind != sys::Kind::kFolder && !index_format::is_index_file(name.text);
  });
}

}  // namespace

// ---- staging -----------------------------------------------------------------------------------

bool NewVersions::stage(NewVersion& version) {
  const auto failed = [&](const std::string& path, const std::string& why) {
    version.end(Fate::kFailed, "it cannot be stored: " + printable(path) + ": " + why);
    return false;
  };
  if (const std::string old = path_of(version.replaces); !version.replaces.empty()) {
    if (const os::Status status = sys::probe_writable(old); !status.ok()) {
      version.end(Fate::kFailed, "its file " + printable(old) +
                                     " cannot be written: " + why_not_usable(old, status));
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

bool NewVersions::any_pending() const { return std::ranges::any_of(m_items, &Item::is_pending); }

bool NewVersions::any_new_pending() const {
  return std::ranges::any_of(m_items, &Item::is_new_pending);
}

void NewVersions::fail_pending(Fate fate, const std::string& reason) {
  for (Item& item : m_items) {
    if (!item.is_pending()) continue;
    take_back(item);
    item.version->end(fate, reason);
  }
}

void NewVersions::refuse(const char* what, const std::string& path, const os::Status& status) {
  if (status.failure() == os::Failure::kLocked) return fail_pending(Fate::kLocked, path);
  fail_pending(Fate::kFailed, std::string(what) + " " + printable(path) +
                                  " cannot be written: " + why_not_usable(path, status));
}

void NewVersions::take_back(Item& item) {
  if (!item.is_moved) return;
  static_cast<void>(os::remove_file(path_of(item.version->file)));
  item.is_moved = false;
}

/// Flushes the folders in which files were replaced.
void NewVersions::flush_replaced(const std::vector<NewVersions*>& folders,
                                 const std::vector<std::string>& replaced) {
  if (replaced.empty()) return;
  const os::Status flushed = sys::flush_files({}, replaced);
  if (flushed.ok()) return;
  for (NewVersions* const each : folders) {
    for (Item& item : each->m_items) {
      if (item.is_new() || item.version->fate != Fate::kStored) continue;
      item.version->end(Fate::kFailed,
                        "it is replaced, but a power failure may bring the old file back: " +
                            sys::text_of(flushed));
    }
  }
}

void NewVersions::enter(const std::vector<NewVersions*>& folders) {
  const auto flush = [&](const std::vector<std::string>& files,
                         const std::vector<std::string>& names) {
    const os::Status flushed = sys::flush_files(files, names);
    if (flushed.ok()) return;
    for (NewVersions* const each : folders)
      each->fail_pending(Fate::kFailed,
                         "it could not be flushed to the device: " + sys::text_of(flushed));
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
  save(folders);
  std::vector<std::string> replaced;
  for (NewVersions* const each : folders) {
    if (each->replace_files()) replaced.push_back(each->m_folder.path);
    each->m_index.close();
  }
  flush_replaced(folders, replaced);
  // Required: after all indexes are unlocked. Locking one while another is locked, against the
  // order of the paths, can deadlock with another program.
  for (NewVersions* const each : folders) each->verify();
}

void NewVersions::prepare() {
  if (!any_pending() || !open_index()) return;
  drop_taken();
  if (!any_new_pending() || !draw_numbers()) return;
  move_files();
}

bool NewVersions::open_index() {
  const std::string path = path_of(index_format::kIndexFile);
  const bool is_new = sys::describe(path).kind == sys::Kind::kMissing;
  os::Status status =
      m_index.open(path, LockedFile::For::kChanging, LockedFile::IfMissing::kMake, m_locking);
  if (status.ok() && is_new && m_index.size() == 0) {
    // An empty index would look like one that lost its entries.
    status = m_index.write_at(0, " ");
    if (!status.ok()) static_cast<void>(os::remove_file(path));
  }
  if (status.ok()) status = m_view.load_locked(m_folder, m_index);
  if (!status.ok() && m_view.status().ok()) {
    refuse("the index", path, status);
    return false;
  }
  if (!status.ok()) {
    fail_pending(Fate::kFailed,
                 printable(m_folder.path) + " cannot be listed: " + sys::text_of(m_view.status()));
    return false;
  }
  return is_sound();
}

/// Whether the index is undamaged. If it is, readers find new entries, and a save does not remove
/// what is left of lost names. An empty index in a folder without documents is valid: a killed
/// process had just created it.
bool NewVersions::is_sound() {
  const std::string path = printable(path_of(index_format::kIndexFile));
  if (m_view.index_state() == IndexState::kNoBytes && has_documents(m_view)) {
    fail_pending(Fate::kFailed, path +
                                    " has lost its entries; restore them first with 'stgctl index "
                                    "restore', or see 'stgctl check'");
    return false;
  }
  for (const LintedLine& line : IndexLint(m_view)) {
    if (line.verdict != Verdict::kNoSeparator || line.is_blank()) continue;
    fail_pending(Fate::kFailed, path + " is damaged in line " + std::to_string(line.number) +
                                    "; run 'stgctl repair' first");
    return false;
  }
  return true;
}

/// Drops versions whose entry another program created or changed since they were staged.
void NewVersions::drop_taken() {
  std::map<std::string_view, std::pair<Verdict, std::string>> taken;
  for (const LintedLine& line : IndexLint(m_view)) {
    const bool counts = line.verdict == Verdict::kEntry && line.has_file;
    if (counts || line.verdict == Verdict::kUnknown)
      taken.emplace(line.key, std::pair(line.verdict, std::string(line.file)));
  }
  for (Item& item : m_items) {
    if (!item.is_pending()) continue;
    NewVersion& version = *item.version;
    const auto found = taken.find(key_of(version));
    if (found == taken.end()) {
      if (!item.is_new()) version.end(Fate::kMeanwhile, "another program has removed it");
    } else if (found->second.first != Verdict::kEntry) {
      version.end(Fate::kFailed, "the system could not check whether it exists");
    } else if (found->second.second != version.replaces) {
      version.end(Fate::kMeanwhile, "another program has stored it");
    }
  }
}

bool NewVersions::draw_numbers() {
  const std::string path = path_of(index_format::kCounterFile);
  LockedFile counter;
  std::string text;
  os::Status status =
      counter.open(path, LockedFile::For::kChanging, LockedFile::IfMissing::kMake, m_locking);
  if (status.ok()) status = counter.read_text(text);
  std::int32_t last = std::max({counter_in(text), highest_number(m_view), 0});
  if (status.ok()) {
    std::set<std::string, std::less<>> stored;
    for (const LintedLine& line : IndexLint(m_view)) stored.emplace(line.stored);
    for (Item& item : m_items) {
      if (!item.is_new_pending()) continue;
      do {
        if (last == std::numeric_limits<std::int32_t>::max()) {
          fail_pending(Fate::kFailed,
                       printable(path) +
                           " contains the highest possible number, so no new file can be named");
          return false;
        }
        item.stored = index_format::generated_name(++last);
        item.version->file = index_format::file_name_of(key_of(*item.version), item.stored);
      } while (stored.contains(item.stored) || item.stored == index_format::kTroubleName ||
               m_view.find(item.stored) != FolderView::kNone ||
               m_view.find(item.version->file) != FolderView::kNone);
    }
    status = write_number(counter, text, index_format::generated_name(last));
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
    item.version->end(Fate::kFailed,
                      "it cannot be stored: " + printable(path_of(item.version->file)) + ": " +
                          sys::text_of(moved));
  }
}

/// The text of the index with the new entries, in the library's order. Dangling entries stay,
/// except those with a new key.
std::string NewVersions::text_with_lines() const {
  std::vector<std::string> lines;
  std::set<std::string, std::less<>> keys;
  for (const Item& item : m_items) {
    if (!item.is_new_pending()) continue;
    std::string key = key_of(*item.version);
    lines.push_back(key + "/" + item.stored);
    keys.insert(std::move(key));
  }
  for (const LintedLine& line : IndexLint(m_view)) {
    if (!line.is_blank() && !keys.contains(line.key)) lines.emplace_back(line.raw);
  }
  sort_by_key(lines);
  return index_text_of(lines);
}

void NewVersions::save(const std::vector<NewVersions*>& folders) {
  std::vector<NewVersions*> changed;
  std::vector<std::string> texts;
  for (NewVersions* const each : folders) {
    if (!each->any_new_pending()) continue;
    changed.push_back(each);
    texts.push_back(each->text_with_lines());
  }
  std::vector<LockedFile::NewLines> all;
  for (std::size_t i = 0; i < changed.size(); ++i)
    all.push_back({&changed[i]->m_index, changed[i]->m_view.index_text(), texts[i], {}});
  LockedFile::replace_lines(all);
  for (std::size_t i = 0; i < changed.size(); ++i) changed[i]->judge_save(texts[i], all[i].status);
}

void NewVersions::judge_save(const std::string& wanted, const os::Status& status) {
  std::string now;
  // If only the last steps of the replacement failed, the new text is valid.
  const bool holds = status.ok() || (m_index.read_text(now).ok() && now == wanted);
  if (!holds) {
    fail_pending(Fate::kFailed, "the index " + printable(path_of(index_format::kIndexFile)) +
                                    " cannot be written: " + sys::text_of(status));
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
  sys::Locking at_once = m_locking;
  at_once.time_out = std::chrono::milliseconds(0);
  bool any = false;
  for (Item& item : m_items) {
    if (!item.is_pending() || item.is_new()) continue;
    NewVersion& version = *item.version;
    version.file = version.replaces;
    const std::string path = path_of(version.file);
    LockedFile old;
    const os::Status locked =
        old.open(path, LockedFile::For::kChanging, LockedFile::IfMissing::kFail, at_once);
    if (!locked.ok() && locked.failure() != os::Failure::kLocked) {
      version.end(Fate::kFailed, "its file " + printable(path) +
                                     " cannot be written: " + why_not_usable(path, locked));
      continue;
    }
    if constexpr (!sys::kReplacesOpenFiles) old.close();
    const bool is_replaced = locked.ok() && sys::replace_file(item.copy, path).ok();
    version.fate = is_replaced ? Fate::kStored : Fate::kInPlace;
    any = any || is_replaced;
  }
  return any;
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
  std::map<std::string, std::string, std::less<>> entries;
  std::set<std::string, std::less<>> stored;
  for (const LintedLine& line : IndexLint(view)) {
    stored.emplace(line.stored);
    if (line.verdict == Verdict::kEntry) entries.emplace(line.key, line.stored);
  }
  for (Item& item : m_items) {
    if (!is_stored(item)) continue;
    const auto entry = entries.find(key_of(*item.version));
    if (entry != entries.end() && entry->second == item.stored) continue;
    if (!stored.contains(item.stored)) take_back(item);
    item.version->end(Fate::kMeanwhile, entry == entries.end() ? "another program has removed it"
                                                               : "another program has stored it");
  }
}

}  // namespace admin
