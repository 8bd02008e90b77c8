#include <cstdint>
#include <string>
#include <utility>

#include "file/folder_entries.h"
#include "file/path_text.h"
#include "index/index_format.h"
#include "index/index_source.h"
#include "index/index_state.h"
#include "index/own_files.h"
#include "platform/host/trace.h"
#include "stg_index.h"
#include "vu_file_except.h"

// Changes of entries, in memory and in the files of the folder.

bool STGIndex::_contains(const std::string& logical, long timestamp) const {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  return m_state->find(entryAndTS(logical, timestamp)).has_value();
}

namespace {

/// Gives a new entry a file that did not exist. @p draw returns the next number as a name.
template <class Draw>
std::string make_own_file(IndexState& state, const std::string& key, Draw draw) {
  for (std::int32_t before = -1;;) {
    const std::string physical = draw();
    std::string name = index_format::file_name_of(key, physical);
    std::string path = path_text::join(state.folder(), name);
    if (create_new_file(path)) {
      OwnFiles::note(std::move(path));
      state.insert(key, physical);
      state.file_is_made(key, {name, {}, {}});
      return name;
    }
    // A counter that cannot be written does not advance. The failure was traced.
    const std::int32_t number = index_format::parse_decimal(physical);
    if (number <= before)
      throw vu_file_except("STGIndex: the counter gives no name for a new file: " + state.folder() +
                           "\\" + index_format::kCounterFile);
    before = number;
  }
}

}  // namespace

std::string STGIndex::_create(const std::string& logical, long timestamp) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  const std::string key = entryAndTS(logical, timestamp);
  const IndexLine* const unknown = m_state->unknown_line(key);
  const bool needs_own_file = OwnFiles::are_required();
  // Required: the extension is appended to any physical name.
  std::string name;
  if (const auto stored = m_state->find(key)) {
    name = std::string(*stored) + extension(logical);
  } else if (unknown != nullptr) {
    name = index_format::file_name_of(key, unknown->stored);
  } else if (needs_own_file) {
    const std::string suffix = extension(logical);
    name =
        make_own_file(*m_state, key, [&] { return draw_name(*m_state, &suffix, vu_trace_scope); });
  } else {
    const std::string physical = newIndex();
    m_state->insert(key, physical);
    name = physical + extension(logical);
  }

  // The file of an unknown entry may exist; the caller opens it and finds out.
  const Presence presence =
      needs_own_file ? Presence::kThere : presence_of(path_text::join(m_folder, name));
  if (presence == Presence::kMissing || (presence == Presence::kUnknown && unknown == nullptr)) {
    vu_file file(m_folder, name);
    file.open(o_append);
    file.close();
    // If the system could not tell, the file may have been there, and another entry's.
    if (presence == Presence::kMissing) m_state->file_is_made(key, {name, {}, {}});
  }
  VU_TRACE_M(" STGIndex (create): Set need update flag to true: index.dat will be updated");
  VU_TRACE_M("           folder : ", m_folder);
  m_needUpdate = true;
  return name;
}

namespace {

void trace_removal(const std::string& folder) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  VU_TRACE_M(" STGIndex (remove) : Set need update flag to true: index.dat will be updated");
  VU_TRACE_M("            folder : ", folder);
}

/// @return whether the file existed and is gone now.
bool remove_if_there(const std::string& path) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  if (!remove_plain_file(path)) {
    if (presence_of(path) == Presence::kMissing) return false;
    vu_file::chmodW(path);
    vu_file::remove(path);
  }
  if (presence_of(path) == Presence::kMissing) return true;
  VU_ERROR("STGIndex: removal of file failed: ", path);
  return false;
}

}  // namespace

void STGIndex::_remove(const std::string& logical, long timestamp) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  const std::string key = entryAndTS(logical, timestamp);
  const auto stored = m_state->find(key);
  // An unknown entry stays; the load has reported it.
  if (!stored) return;

  const std::string file = index_format::file_name_of(key, *stored);
  const std::string path = path_text::join(m_folder, file);
  m_state->file_changes(file);
  m_state->take(key);
  if (remove_if_there(path)) m_state->file_is_gone(file);
  trace_removal(m_folder);
  m_needUpdate = true;
}

bool STGIndex::_rename(const std::string& oldLogical, long oldTs, const std::string& newLogical,
                       long newTs) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  const std::string old_key = entryAndTS(oldLogical, oldTs);
  const std::string new_key = entryAndTS(newLogical, newTs);
  const auto old_stored = m_state->find(old_key);
  if (!old_stored) return m_state->unknown_line(old_key) == nullptr;
  if (m_state->unknown_line(new_key) != nullptr) return false;
  // The save would keep the line of such an entry and then remove its file.
  if (m_state->is_made(old_key)) return false;

  // Required: the save removes the files of the old entry and of the entry that it replaces. Until
  // then readers find both entries, even after an interruption.
  const std::string old_file = index_format::file_name_of(old_key, *old_stored);
  const bool replaces = _contains(newLogical, newTs);
  if (replaces && OwnFiles::if_entered() == IfEntered::kYield) {
    const std::string file = index_format::file_name_of(new_key, *m_state->find(new_key));
    if (presence_of(path_text::join(m_folder, file)) != Presence::kMissing) {
      OwnFiles::note_yield();
      return false;
    }
  }
  std::string replaced_file;
  IndexState::Taken replaced;
  const auto undo = [&] {
    m_state->keep_file(old_file);
    m_state->keep_file(replaced_file);
    if (replaces && !replaced) return;
    const IndexState::Taken made = m_state->withdraw(new_key);
    m_state->put_back(replaced);
    // The rest needs memory. The entries are already restored.
    if (!made) return;
    const std::string new_file = index_format::file_name_of(new_key, made.stored);
    if (new_file == replaced_file) return;
    const bool is_mine = made.making != Changes::kNone;
    if (!is_mine && m_state->is_anothers(new_key, std::string(made.stored))) return;
    const std::string new_path = path_text::join(m_folder, new_file);
    if (remove_if_there(new_path)) OwnFiles::forget(new_path);
    trace_removal(m_folder);
  };
  bool is_copied = false;
  try {
    // Required: the old entry stays, by its key and by its physical name. The save removes its
    // file, so it does not write the entry back.
    m_state->remove_after_save(old_file, IndexState::IfItStays::kNothing);
    if (replaces) {
      replaced_file = index_format::file_name_of(new_key, *m_state->find(new_key));
      m_state->remove_after_save(replaced_file, IndexState::IfItStays::kError);
      replaced = m_state->take(new_key);
      trace_removal(m_folder);
    }
    const std::string new_file = _create(newLogical, newTs);
    // If the counter cannot be used, this may be the name of an existing file.
    const bool is_free = new_file != replaced_file &&
                         !m_state->is_anothers(new_key, std::string(*m_state->find(new_key)));
    is_copied = is_free && copy_and_flush(path_text::join(m_folder, old_file),
                                          path_text::join(m_folder, new_file));
    if (is_copied)
      m_state->file_is_made(new_key, {new_file, old_file, replaced_file, replaced.making});
  } catch (...) {
    undo();
    throw;
  }
  if (!is_copied) {
    VU_ERROR("STGIndex: rename: copy failed: ", m_folder, "\\", old_file);
    undo();
    return false;
  }
  VU_TRACE_M(" STGIndex (rename): Set need update flag to true: index.dat will be updated");
  VU_TRACE_M("           folder : ", m_folder);
  m_needUpdate = true;
  return true;
}
