#include "index/folder_files.h"

#include <utility>

#include "file/folder_entries.h"

namespace {

bool is_network_folder(std::string_view folder) {
  const auto is_separator = [](char c) { return c == '\\' || c == '/'; };
  return folder.size() >= 2 && is_separator(folder[0]) && is_separator(folder[1]);
}

}  // namespace

FolderFiles::FolderFiles(std::string folder, std::vector<os::Entry> entries)
    : m_folder(std::move(folder)), m_listed(true), m_entries(std::move(entries)) {
  m_names = EntryTable(m_entries);
}

const std::vector<os::Entry>& FolderFiles::entries() {
  if (!m_listed) {
    m_entries = folder_entries(m_folder);
    m_names = EntryTable(m_entries);
    m_listed = true;
  }
  return m_entries;
}

std::uint64_t FolderFiles::ask(std::string_view name) {
  entries();
  return m_names.ask(name);
}

std::size_t FolderFiles::listed(std::string_view name, std::uint64_t hash) const {
  const std::size_t entry = m_names.find(name, hash);
  return entry != kNone && may_be_missing(m_entries[entry]) ? kNone : entry;
}

bool FolderFiles::may_be_missing(const os::Entry& entry) const {
  // A search takes "*" and "?" for patterns, and may drop dots and blanks at the end.
  const std::string& name = entry.name;
  if (name.find_first_of("*?") != std::string::npos || name.back() == '.' || name.back() == ' ')
    return true;
  // A network path is asked for by its attributes, which follow a link that leads nowhere.
  return entry.kind == os::EntryKind::kUnknown && is_network_folder(m_folder);
}

FolderFiles::Found FolderFiles::find(std::string_view name) {
  const std::size_t entry = listed(name, ask(name));
  if (entry != kNone) return {Presence::kThere, entry};
  return {probe(name), kNone};
}

Presence FolderFiles::probe(std::string_view name) {
  m_path.assign(m_folder).append("\\").append(name);
  return presence_of(m_path);
}

Presence presence_of(const std::string& path) {
  const os::Status status = find_entry(path);
  if (status.ok()) return Presence::kThere;
  return status.failure() == os::Failure::kOther ? Presence::kUnknown : Presence::kMissing;
}
