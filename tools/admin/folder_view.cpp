#include "tools/admin/folder_view.h"

#include <cstddef>

#include "file/replacement.h"

namespace admin {

namespace {

/// Makes the bytes of an index or a counter the text that the library reads in them: a replacement
/// that was interrupted counts, zeros at the end do not.
void keep_text(std::string& bytes) {
  std::string storage;
  const std::string_view text = replacement::text_of(bytes, storage);
  if (text.data() == bytes.data()) {
    bytes.resize(text.size());
  } else {
    bytes = std::string(text);
  }
}

}  // namespace

void FolderView::load(const DocumentFolder& folder, const sys::Locking& locking) {
  m_folder = folder;
  read_index(locking);
  list();
}

void FolderView::load_text(const DocumentFolder& folder, std::string_view index_text) {
  m_folder = folder;
  m_index_status = {};
  m_index_text = index_text;
  m_index_state = m_index_text.empty() ? IndexState::kNoBytes : IndexState::kRead;
  list();
}

void FolderView::list() {
  m_bytes.clear();
  m_names.clear();
  m_table.clear();
  sys::Folder listing;
  m_status = listing.open(m_folder.path);
  if (!m_status.ok()) return;
  sys::Entry entry;
  while (listing.next(entry)) {
    m_bytes.insert(m_bytes.end(), entry.name.begin(), entry.name.end());
    // Where the text will be is known only when no more bytes come.
    m_names.push_back({std::string_view(entry.name.data(), entry.name.size()), entry.kind});
  }
  m_status = listing.status();
  const char* at = m_bytes.data();
  std::uint32_t number = 0;
  for (Name& name : m_names) {
    name.text = std::string_view(at, name.text.size());
    at += name.text.size();
    m_table.insert(name.text, number++);
  }
}

void FolderView::read_index(const sys::Locking& locking) {
  m_index_path.assign(m_folder.path).push_back(sys::kSeparator);
  m_index_path += kIndexName;
  m_index_status = sys::read_file(m_index_path, locking, m_index_text);
  if (m_index_status.ok()) {
    keep_text(m_index_text);
    m_index_state = m_index_text.empty() ? IndexState::kNoBytes : IndexState::kRead;
  } else if (m_index_status.failure() == os::Failure::kNotFound) {
    m_index_state = IndexState::kMissing;
  } else if (m_index_status.failure() == os::Failure::kLocked) {
    m_index_state = IndexState::kLocked;
  } else {
    m_index_state = IndexState::kFailed;
  }
}

std::optional<std::string> FolderView::read_counter(const sys::Locking& locking) const {
  if (find(kCounterName) == kNone) return std::nullopt;
  std::string text;
  if (!sys::read_file(path_of(kCounterName), locking, text).ok()) return std::nullopt;
  keep_text(text);
  return text;
}

}  // namespace admin
