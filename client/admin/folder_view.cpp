#include "client/admin/folder_view.h"

#include <utility>

#include "file/replacement.h"

namespace admin {

namespace {

os::EntryKind entry_kind_of(sys::Kind kind) {
  if (kind == sys::Kind::kFile) return os::EntryKind::kFile;
  return kind == sys::Kind::kFolder ? os::EntryKind::kFolder : os::EntryKind::kUnknown;
}

}  // namespace

void FolderView::load(const DocumentFolder& folder, const sys::Locking& locking) {
  m_folder = folder;
  read_index(locking);
  list();
}

void FolderView::load_text(const DocumentFolder& folder, std::string index_text) {
  m_folder = folder;
  m_index_status = {};
  m_index_bytes = std::move(index_text);
  take_text();
  list();
}

void FolderView::take_text() {
  m_index_text = replacement::text_of(m_index_bytes, m_saved_text);
  // The text is a view of the bytes, unless it is that of an interrupted save.
  m_has_interrupted_save = m_index_text.data() != m_index_bytes.data();
  m_index_state = m_index_text.empty() ? IndexState::kNoBytes : IndexState::kRead;
}

void FolderView::list() {
  m_names.clear();
  m_table.clear();
  os::Listing entries;
  std::vector<sys::Kind> kinds;
  sys::Folder listing;
  m_status = listing.open(m_folder.path);
  if (m_status.ok()) {
    sys::Entry entry;
    while (listing.next(entry)) {
      entries.append(entry.name, entry_kind_of(entry.kind));
      kinds.push_back(entry.kind);
    }
    m_status = listing.status();
  }
  m_files = std::make_unique<FolderFiles>(m_folder.path, std::move(entries));
  for (const os::Entry entry : m_files->entries()) {
    const auto number = static_cast<std::uint32_t>(m_names.size());
    m_names.push_back({entry.name, kinds[number]});
    m_table.insert(entry.name, number);
  }
}

void FolderView::read_index(const sys::Locking& locking) {
  m_index_path.assign(m_folder.path).push_back(sys::kSeparator);
  m_index_path += index_format::kIndexFile;
  m_index_bytes.clear();
  m_index_status = sys::read_file(m_index_path, locking, m_index_bytes);
  if (!m_index_status.ok()) m_index_bytes.clear();
  take_text();
  if (m_index_status.ok()) return;
  if (m_index_status.failure() == os::Failure::kNotFound) {
    m_index_state = IndexState::kMissing;
  } else if (m_index_status.failure() == os::Failure::kLocked) {
    m_index_state = IndexState::kLocked;
  } else {
    m_index_state = IndexState::kFailed;
  }
}

std::optional<std::string> FolderView::read_counter(const sys::Locking& locking) const {
  if (find(index_format::kCounterFile) == kNone) return std::nullopt;
  std::string bytes;
  if (!sys::read_file(path_of(index_format::kCounterFile), locking, bytes).ok())
    return std::nullopt;
  std::string saved;
  return std::string(replacement::text_of(bytes, saved));
}

}  // namespace admin
