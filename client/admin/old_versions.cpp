#include "client/admin/old_versions.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "client/admin/folder_view.h"
#include "client/admin/index_lint.h"
#include "client/admin/locked_file.h"
#include "client/admin/text.h"
#include "client/admin/writable.h"
#include "index/index_format.h"

namespace admin {

namespace {

using Fate = OldVersion::Fate;

/// What an index holds when it has no lines.
constexpr const char* kNoLines = " ";

class Removal {
 public:
  Removal(const DocumentFolder& folder, const sys::Locking& locking,
          const std::vector<OldVersion*>& versions)
      : m_folder(folder), m_locking(locking), m_versions(versions) {}

  void run() {
    if (!open_index()) return;
    read_lines();
    std::set<std::string> gone;
    for (OldVersion* const version : m_versions) {
      if (remove(*version)) gone.insert(key_of(*version));
    }
    if (!gone.empty()) save(gone);
  }

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
  std::string why_not_ours(const OldVersion& version) const;
  void save(const std::set<std::string>& gone);

  const DocumentFolder& m_folder;
  const sys::Locking& m_locking;
  const std::vector<OldVersion*>& m_versions;
  LockedFile m_index;
  std::string m_text;
  FolderView m_view;
  std::map<std::string, Line> m_lines;        ///< by key
  std::map<std::string, std::size_t> m_uses;  ///< of physical names
};

bool Removal::open_index() {
  const std::string path = path_of(index_format::kIndexFile);
  os::Status status =
      m_index.open(path, LockedFile::For::kChanging, LockedFile::IfMissing::kFail, m_locking);
  if (status.ok()) status = m_index.read_text(m_text);
  if (status.ok()) m_view.load_text(m_folder, m_text);
  if (status.ok() && m_view.status().ok()) return true;
  const bool is_locked = status.failure() == os::Failure::kLocked;
  const std::string why =
      status.ok() ? sys::text_of(m_view.status()) : why_not_usable(path, status);
  for (OldVersion* const version : m_versions) {
    leave(*version, is_locked ? Fate::kLocked : Fate::kFailed,
          is_locked ? path : "the index " + printable(path) + " cannot be written: " + why);
  }
  return false;
}

void Removal::read_lines() {
  IndexLint lint;
  lint.start(m_view);
  LintedLine line;
  while (lint.next(line)) {
    ++m_uses[std::string(line.stored)];
    if (line.verdict == Verdict::kEntry)
      m_lines.emplace(line.key, Line{std::string(line.stored), std::string(line.file)});
  }
}

/// Why the version is not the one any more that was looked at; empty when it is.
std::string Removal::why_not_ours(const OldVersion& version) const {
  const auto line = m_lines.find(key_of(version));
  if (line == m_lines.end()) return "somebody else removed it meanwhile";
  const sys::Info now = sys::describe(path_of(version.file));
  const bool is_same = line->second.file == version.file && now.kind == sys::Kind::kFile &&
                       now.size == version.info.size && now.modify_time == version.info.modify_time;
  return is_same ? "" : "somebody else changed it meanwhile, so that it stays";
}

/// @return whether its line may go.
bool Removal::remove(OldVersion& version) {
  if (std::string why = why_not_ours(version); !why.empty()) {
    leave(version, Fate::kMeanwhile, std::move(why));
    return false;
  }
  // Nobody is waited for under the lock of an index: who has a document open may ask for the index.
  sys::Locking at_once = m_locking;
  at_once.time_out = std::chrono::milliseconds(0);
  const std::string path = path_of(version.file);
  LockedFile file;
  const os::Status locked =
      file.open(path, LockedFile::For::kChanging, LockedFile::IfMissing::kFail, at_once);
  if (!locked.ok()) {
    leave(version, Fate::kFailed,
          "its file " + printable(path) + " stays: " + why_not_usable(path, locked));
    return false;
  }
  if constexpr (!sys::kReplacesOpenFiles) file.close();
  // The file of another entry as well stays with it.
  if (m_uses[m_lines.at(key_of(version)).stored] == 1) {
    if (const os::Status removed = os::remove_file(path); !removed.ok()) {
      leave(version, Fate::kFailed,
            "its file " + printable(path) + " stays: " + sys::text_of(removed));
      return false;
    }
  }
  version.fate = Fate::kRemoved;
  return true;
}

void Removal::save(const std::set<std::string>& gone) {
  std::string wanted;
  IndexLint lint;
  lint.start(m_view);
  LintedLine line;
  while (lint.next(line)) {
    const bool is_blank = line.raw.find_first_not_of(' ') == std::string_view::npos;
    if (!is_blank && !gone.contains(std::string(line.key))) wanted.append(line.raw).append("\n");
  }
  if (wanted.empty()) wanted = kNoLines;
  const os::Status status = m_index.replace_lines(m_text, wanted);
  std::string now;
  // A failure behind the moment that counts leaves the new text.
  if (status.ok() || (m_index.read_text(now).ok() && now == wanted)) return;
  for (OldVersion* const version : m_versions) {
    if (version->fate == Fate::kRemoved)
      leave(*version, Fate::kFailed,
            "its file is gone, but its line is still in the index: " + sys::text_of(status));
  }
}

}  // namespace

void remove_old_versions(const DocumentFolder& folder, const sys::Locking& locking,
                         const std::vector<OldVersion*>& versions) {
  Removal(folder, locking, versions).run();
}

}  // namespace admin
