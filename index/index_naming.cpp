#include <cstdint>
#include <cstdio>

#include "file/handle_core.h"
#include "file/replacement.h"
#include "index/folder_files.h"
#include "index/index_format.h"
#include "index/index_source.h"
#include "platform/host/trace.h"
#include "stg_index.h"

// Names of physical files: drawing new ones, and adopting files found in the folder.

namespace {

/// The next number after @p last whose name is not taken, in eight or more digits; past the largest number, and
/// after a negative one, the first name of all.
std::string next_free_name(std::int32_t last, const std::map<std::string, std::string>& taken) {
  while (last >= 0) {
    last = static_cast<std::int32_t>(static_cast<std::uint32_t>(last) + 1U);
    if (last < 0) break;
    char name[16];
    std::snprintf(name, sizeof name, "%.8d", last);
    if (!taken.contains(name)) return name;
  }
  return "00000000";
}

/// Lower case for ASCII letters behind the last dot; a name without a dot stays as it is.
std::string with_lower_case_extension(std::string name) {
  const std::size_t dot = name.rfind('.');
  if (dot == std::string::npos) return name;
  for (std::size_t i = dot + 1; i < name.size(); ++i) {
    if (name[i] >= 'A' && name[i] <= 'Z') name[i] = static_cast<char>(name[i] - 'A' + 'a');
  }
  return name;
}

}  // namespace

std::string STGIndex::newIndex() {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  fillMaps();
  vu_file counter(m_folder, kCounterFile);
  std::string name;
  FileText bytes;
  try {
    counter.open(o_append);
    bytes = read_to_end(counter);
    std::string storage;
    const std::string_view last = replacement::text_of(bytes.view(), storage);
    name = next_free_name(index_format::parse_decimal(last), m_pl);
    replace_and_close(counter, bytes.view(), name);
    return name;
  } catch (...) {
    name = "99999999";
    VU_ERROR("STGIndex::newIndex : return ", name);
  }
  try {
    replace_and_close(counter, bytes.view(), name);
  } catch (...) {
    // Traced by the handle where it could be; the name is given all the same.
  }
  counter.close();
  return name;
}

bool STGIndex::alreadyInMaps(const std::string& found) const {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  fillMaps();
  const auto it = m_pl.find(found);
  if (it != m_pl.end() && index_format::timestamp_of(it->second) == 0 &&
      index_format::logical_of(it->second) == found) {
    return true;
  }
  std::string stem = found;
  std::string extension;
  vu_file::split(stem, extension);
  return m_pl.contains(stem);
}

void STGIndex::add_not_referenced_entry(const std::string& found) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  fillMaps();
  std::string name = found;
  if (name.find('.') != std::string::npos) {
    name = with_lower_case_extension(std::move(name));
    // Required: renamed also when no letter changed.
    if (!vu_file::rename(m_folder + "\\" + found, m_folder + "\\" + name)) name = found;
  }

  const std::string key = entryAndTS(name, 0);
  const auto [it, is_new] = m_lp.emplace(key, name);
  const std::string physical = it->second;
  m_pl.emplace(physical, key);
  vu_file::chmodW(m_folder + "\\" + physical);
  VU_TRACE_M(
      " STGIndex (copy manually to folder): Set need update flag to true: index.dat will be "
      "updated");
  VU_TRACE_M("                            folder : ", m_folder);
  m_needUpdate = true;
}

void STGIndex::synchronizeToFolder(FolderFiles& files) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  try {
    // A folder that is gone lists nothing; the question traces that.
    if (files.entries().empty()) vu_file::is_dir(m_folder);
    const std::vector<os::Entry>& entries = files.entries();
    for (std::size_t i = 0; i < entries.size(); ++i) {
      if (files.is_accounted_for(i)) continue;
      const os::Entry& entry = entries[i];
      if (entry.kind == os::EntryKind::kFolder || entry.name == kIndexFile ||
          entry.name == kCounterFile)
        continue;
      if (entry.kind == os::EntryKind::kUnknown && vu_file::is_dir(m_folder + "\\" + entry.name))
        continue;
      if (!alreadyInMaps(entry.name)) add_not_referenced_entry(entry.name);
    }
  } catch (const vu_file_except& e) {
    VU_ERROR("synchronizeToFolder : ", e.what());
  } catch (...) {
    VU_ERROR("synchronizeToFolder : unknown exception");
  }
}
