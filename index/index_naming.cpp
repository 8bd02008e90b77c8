#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "file/handle_core.h"
#include "file/lock_limit.h"
#include "file/path_text.h"
#include "file/replacement.h"
#include "index/index_format.h"
#include "index/index_source.h"
#include "index/index_state.h"
#include "index/known_files.h"
#include "platform/host/trace.h"
#include "stg_index.h"

// Names of physical files: new ones, and adoption.

namespace {

/// The next name after the number @p last that is not taken; kFirstName after the largest number
/// and after a negative one. With an extension, names of files that exist are taken, too.
std::string next_free_name(std::int32_t last, IndexState& index, const std::string* extension) {
  std::set<std::string, std::less<>> unknown;
  index.visit_unknown([&](std::string_view, std::string_view stored) { unknown.emplace(stored); });
  while (last >= 0) {
    last = static_cast<std::int32_t>(static_cast<std::uint32_t>(last) + 1U);
    if (last < 0) break;
    std::string name = index_format::generated_name(last);
    const bool is_taken =
        index.way_back_of(name) || unknown.contains(name) || index.is_to_be_removed(name);
    if (is_taken) continue;
    if (extension == nullptr || index.files().find(name + *extension) != Presence::kThere)
      return name;
  }
  return index_format::kFirstName;
}

/// Converts the ASCII letters after the last dot to lower case. There must be a dot.
void lower_extension(std::string& name) {
  for (std::size_t i = name.rfind('.') + 1; i < name.size(); ++i) {
    if (name[i] >= 'A' && name[i] <= 'Z') name[i] = static_cast<char>(name[i] - 'A' + 'a');
  }
}

}  // namespace

std::string draw_name(IndexState& state, const std::string* own_extension,
                      const trace::Scope& operation) {
  vu_file counter(state.folder(), index_format::kCounterFile);
  std::string name;
  std::optional<FileText> bytes;
  try {
    counter.open(vu_file::o_append);
    bytes = read_to_end(counter);
    std::string storage;
    const std::string_view last = replacement::text_of(bytes->view(), storage);
    name = next_free_name(index_format::parse_decimal(last), state, own_extension);
    replace_and_close(counter, bytes->view(), name);
    return name;
  } catch (...) {
    // The deadline has passed for the entry, too. And this name may be that of another entry.
    if (LockLimit::passed() || own_extension != nullptr) throw;
    name = index_format::kTroubleName;
    VU_ERROR_IN(operation, "STGIndex::newIndex : return ", name);
  }
  try {
    if (bytes) {
      replace_and_close(counter, bytes->view(), name);
    } else {
      // The old content is not known, so it cannot be replaced.
      counter.clear();
      counter.write(name);
    }
  } catch (...) {
    // The handle has traced the failure. The name is returned anyway.
  }
  counter.close();
  return name;
}

std::string STGIndex::newIndex() {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  return draw_name(*m_state, nullptr, vu_trace_scope);
}

bool STGIndex::alreadyInMaps(const std::string& found) const {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  return m_state->knows_file(found);
}

void STGIndex::add_not_referenced_entry(const std::string& found) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  m_state->file_changes(found);
  std::string name = found;
  std::string path = path_text::join(m_folder, found);
  if (name.find('.') != std::string::npos) {
    std::string new_path = path;
    lower_extension(name);
    lower_extension(new_path);
    // Required: the file is renamed even if no letter changed.
    if (vu_file::rename(path, new_path)) {
      path = std::move(new_path);
    } else {
      name = found;
    }
  }

  const std::string key = entryAndTS(name, 0);
  const std::string_view physical = m_state->find(key).value_or(name);
  m_state->insert(key, physical);
  vu_file::chmodW(physical == name ? path : path_text::join(m_folder, physical));
  VU_TRACE_M(
      " STGIndex (copy manually to folder): Set need update flag to true: index.dat will be "
      "updated");
  VU_TRACE_M("                            folder : ", m_folder);
  m_needUpdate = true;
}

void STGIndex::synchronizeToFolder() {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  // A file may belong to an unknown entry.
  if (m_state->has_unknown_lines()) return;
  try {
    const os::Listing& listing = m_state->files().listing();
    // A missing folder lists nothing; is_dir() traces that.
    if (listing.empty()) vu_file::is_dir(m_folder);
    std::optional<KnownFiles> known;
    if (m_state->loaded() != nullptr) known.emplace(*m_state->loaded(), listing.size());
    const auto next = [&](std::size_t from) { return known ? known->first_doubtful(from) : from; };
    for (std::size_t i = next(0); i < listing.size(); i = next(i + 1)) {
      const os::Entry found = listing[i];
      if (found.kind == os::EntryKind::kFolder || index_format::is_index_file(found.name)) continue;
      const std::string name(found.name);
      if (found.kind == os::EntryKind::kUnknown && vu_file::is_dir(path_text::join(m_folder, name)))
        continue;
      if (!alreadyInMaps(name)) add_not_referenced_entry(name);
    }
  } catch (const vu_file_except& e) {
    VU_ERROR("synchronizeToFolder : ", e.what());
  } catch (...) {
    VU_ERROR("synchronizeToFolder : unknown exception");
  }
}
