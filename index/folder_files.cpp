#include "index/folder_files.h"

#include <utility>

#include "file/folder_entries.h"

namespace {

bool is_network_folder(std::string_view folder) {
  const auto is_separator = [](char c) { return c == '\\' || c == '/'; };
  return folder.size() >= 2 && is_separator(folder[0]) && is_separator(folder[1]);
}

}  // namespace

FolderFiles::FolderFiles(std::string folder, os::Listing listing) : m_folder(std::move(folder)) {
  take(std::move(listing));
}

void FolderFiles::take(os::Listing listing) {
  m_listing = std::move(listing);
  NameIndex& all = m_names.emplace(m_listing.size());
  for (std::size_t i = 0; i < m_listing.size(); ++i) all.add(all.ask(m_listing[i].name), i);
  const std::string_view names = m_listing.text();
  const bool has_patterns =
      names.find('*') != std::string_view::npos || names.find('?') != std::string_view::npos;
  m_are_sure =
      !has_patterns && !m_listing.has_dot_or_blank_at_an_end() && !is_network_folder(m_folder);
}

const os::Listing& FolderFiles::listing() {
  if (!m_names) {
    os::Listing listing;
    m_listed = folder_entries(m_folder, listing);
    take(std::move(listing));
  }
  return m_listing;
}

os::Status FolderFiles::why_not_listed() {
  listing();
  const bool is_missing =
      m_listed.failure() == os::Failure::kNotFound || m_listed.failure() == os::Failure::kNoName;
  return is_missing ? os::Status() : m_listed;
}

bool FolderFiles::may_be_missing(os::Entry listed) const {
  // A search treats "*" and "?" as patterns, and may drop dots and blanks at the end.
  const std::string_view name = listed.name;
  if (name.back() == '.' || name.back() == ' ') return true;
  if (name.find_first_of("*?") != std::string_view::npos) return true;
  // A network path is checked by its attributes. They follow links, so a dangling link is missing.
  return listed.kind == os::EntryKind::kUnknown && is_network_folder(m_folder);
}

Presence FolderFiles::find(std::string_view name) {
  return listed(name, ask(name)) != kNone ? Presence::kThere : probe(name);
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
