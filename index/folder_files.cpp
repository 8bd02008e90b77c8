#include "index/folder_files.h"

#include <utility>

#include "file/folder_entries.h"

namespace {

bool is_network_folder(std::string_view folder) {
  const auto is_separator = [](char c) { return c == '\\' || c == '/'; };
  return folder.size() >= 2 && is_separator(folder[0]) && is_separator(folder[1]);
}

}  // namespace

FolderFiles::FolderFiles(std::string folder, os::Listing entries) : m_folder(std::move(folder)) {
  take(std::move(entries));
}

void FolderFiles::take(os::Listing entries) {
  m_entries = std::move(entries);
  NameIndex& all = m_names.emplace(m_entries.size());
  for (std::size_t i = 0; i < m_entries.size(); ++i) all.add(all.ask(m_entries[i].name), i);
  const std::string_view names = m_entries.text();
  const bool has_patterns =
      names.find('*') != std::string_view::npos || names.find('?') != std::string_view::npos;
  m_are_sure =
      !has_patterns && !m_entries.has_dot_or_blank_at_an_end() && !is_network_folder(m_folder);
}

const os::Listing& FolderFiles::entries() {
  if (!m_names) take(folder_entries(m_folder));
  return m_entries;
}

bool FolderFiles::may_be_missing(os::Entry entry) const {
  // A search treats "*" and "?" as patterns, and may drop dots and blanks at the end.
  const std::string_view name = entry.name;
  if (name.back() == '.' || name.back() == ' ') return true;
  if (name.find_first_of("*?") != std::string_view::npos) return true;
  // A network path is checked by its attributes. They follow links, so a dangling link is missing.
  return entry.kind == os::EntryKind::kUnknown && is_network_folder(m_folder);
}

FolderFiles::Found FolderFiles::find(std::string_view name) {
  const std::size_t entry = listed(name, ask(name));
  if (entry != kNone) return {Presence::kThere, entry};
  return {probe(name), kNone};
}

Presence FolderFiles::probe(std::string_view name) {
  m_path.reserve(m_folder.size() + 1 + name.size());
  m_path.assign(m_folder).append("\\").append(name);
  return presence_of(m_path);
}

Presence presence_of(const std::string& path) {
  const os::Status status = find_entry(path);
  if (status.ok()) return Presence::kThere;
  const bool is_missing =
      status.failure() == os::Failure::kNotFound || status.failure() == os::Failure::kNoName;
  return is_missing ? Presence::kMissing : Presence::kUnknown;
}
