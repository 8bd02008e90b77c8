#include "client/admin/versions.h"

#include <deque>
#include <map>
#include <set>
#include <utility>

#include "client/admin/folder_view.h"
#include "client/admin/locked_file.h"
#include "client/admin/repair_text.h"
#include "client/admin/system.h"
#include "client/admin/text.h"
#include "index/index_format.h"

namespace admin {

namespace {

using Fate = OldVersion::Fate;

constexpr const char* kRemovedMeanwhile = "another program has removed it";
constexpr const char* kChangedMeanwhile = "another program has changed it, so it stays";

/// Removes versions of one folder.
class Removal {
 public:
  Removal(const OldVersions& what, const sys::Locking& locking)
      : m_folder(what.folder), m_locking(locking), m_versions(what.versions) {}

  /// Removes the files; the index stays locked.
  /// @return false if the index was not locked in time.
  bool remove_files() {
    if (!open_index()) return !m_is_locked;
    read_lines();
    for (OldVersion* const version : m_versions) {
      if (remove(*version)) m_gone.insert(key_of(*version));
    }
    return true;
  }
  /// Removes the entries of the removed files, and unlocks the indexes.
  static void save(std::deque<Removal>& all);

 private:
  struct Line {
    std::string stored;
    std::string file;
  };

  static std::string key_of(const OldVersion& version) {
    return index_format::key_of(version.logical, version.timestamp);
  }
  std::string path_of(std::string_view name) const { return sys::join(m_folder.path, name); }
  static void leave(OldVersion& version, Fate fate, std::string reason) {
    version.fate = fate;
    version.reason = std::move(reason);
  }

  bool open_index();
  void read_lines();
  bool remove(OldVersion& version);
  std::string remaining_lines() const;
  void judge_save(const std::string& wanted, const os::Status& status);

  const DocumentFolder& m_folder;
  const sys::Locking& m_locking;
  const std::vector<OldVersion*>& m_versions;
  LockedFile m_index;
  bool m_is_locked = false;  ///< by another program
  FolderView m_view;
  std::map<std::string, Line> m_lines;        ///< by key
  std::map<std::string, std::size_t> m_uses;  ///< of physical names
  std::set<std::string> m_gone;               ///< keys of removed versions
};

bool Removal::open_index() {
  const std::string path = path_of(index_format::kIndexFile);
  os::Status status =
      m_index.open(path, LockedFile::For::kChanging, LockedFile::IfMissing::kFail, m_locking);
  if (status.ok()) status = m_view.load_locked(m_folder, m_index);
  if (status.ok()) return true;
  m_is_locked = status.failure() == os::Failure::kLocked;
  const std::string why = why_not_usable(path, status);
  for (OldVersion* const version : m_versions) {
    leave(*version, m_is_locked ? Fate::kLocked : Fate::kFailed,
          m_is_locked ? path : "the index " + printable(path) + " cannot be written: " + why);
  }
  return false;
}

void Removal::read_lines() {
  for (const LintedLine& line : IndexLint(m_view)) {
    ++m_uses[std::string(line.stored)];
    if (line.verdict == Verdict::kEntry)
      m_lines.emplace(line.key, Line{std::string(line.stored), std::string(line.file)});
  }
}

/// @return whether its entry can be removed.
bool Removal::remove(OldVersion& version) {
  const auto line = m_lines.find(key_of(version));
  if (line == m_lines.end() || line->second.file != version.file) {
    leave(version, Fate::kMeanwhile, line == m_lines.end() ? kRemovedMeanwhile : kChangedMeanwhile);
    return false;
  }
  // Do not wait while the index is locked: a process that has the document open may wait for the
  // index.
  sys::Locking at_once = m_locking;
  at_once.time_out = std::chrono::milliseconds(0);
  const std::string path = path_of(version.file);
  LockedFile file;
  const os::Status locked =
      file.open(path, LockedFile::For::kChanging, LockedFile::IfMissing::kFail, at_once);
  if (!locked.ok()) {
    leave(version, locked.failure() == os::Failure::kLocked ? Fate::kInUse : Fate::kFailed,
          "its file " + printable(path) + " stays: " + why_not_usable(path, locked));
    return false;
  }
  // Writers wait for this lock, so the file cannot change between this check and its removal.
  if (!version.is_same(file)) {
    leave(version, Fate::kMeanwhile, kChangedMeanwhile);
    return false;
  }
  if constexpr (!sys::kReplacesOpenFiles) file.close();
  // A file that another entry also names stays.
  if (m_uses[line->second.stored] == 1) {
    if (const os::Status removed = os::remove_file(path); !removed.ok()) {
      leave(version, Fate::kFailed,
            "its file " + printable(path) + " stays: " + sys::text_of(removed));
      return false;
    }
  }
  version.fate = Fate::kRemoved;
  return true;
}

std::string Removal::remaining_lines() const {
  std::vector<std::string> lines;
  for (const LintedLine& line : IndexLint(m_view)) {
    if (!line.is_blank() && !m_gone.contains(std::string(line.key))) lines.emplace_back(line.raw);
  }
  return index_text_of(lines);
}

void Removal::save(std::deque<Removal>& all) {
  std::vector<Removal*> changed;
  std::vector<std::string> texts;
  for (Removal& each : all) {
    if (each.m_gone.empty()) continue;
    changed.push_back(&each);
    texts.push_back(each.remaining_lines());
  }
  std::vector<LockedFile::NewLines> saves;
  for (std::size_t i = 0; i < changed.size(); ++i)
    saves.push_back({&changed[i]->m_index, changed[i]->m_view.index_text(), texts[i], {}});
  LockedFile::replace_lines(saves);
  for (std::size_t i = 0; i < changed.size(); ++i)
    changed[i]->judge_save(texts[i], saves[i].status);
}

void Removal::judge_save(const std::string& wanted, const os::Status& status) {
  std::string now;
  // If only the last steps of the replacement failed, the new text is valid.
  if (status.ok() || (m_index.read_text(now).ok() && now == wanted)) return;
  for (OldVersion* const version : m_versions) {
    if (version->fate == Fate::kRemoved)
      leave(*version, Fate::kFailed,
            "its file is removed, but its entry is still in the index: " + sys::text_of(status));
  }
}

}  // namespace

void remove_old_versions(const std::vector<OldVersions>& folders, const sys::Locking& locking) {
  std::deque<Removal> all;
  for (const OldVersions& each : folders) {
    if (!all.emplace_back(each, locking).remove_files()) break;
  }
  Removal::save(all);
}

}  // namespace admin
