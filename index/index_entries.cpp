#include "index/index_format.h"
#include "index/index_source.h"
#include "index/loaded_index.h"
#include "platform/host/trace.h"
#include "stg_index.h"

// Changes of entries, in memory and on their files.

bool STGIndex::_contains(const std::string& logical, long timestamp) const {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  fillMaps();
  return m_lp.contains(entryAndTS(logical, timestamp));
}

std::string STGIndex::_create(const std::string& logical, long timestamp) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  fillMaps();
  const std::string key = entryAndTS(logical, timestamp);
  auto it = m_lp.find(key);
  if (it == m_lp.end()) {
    it = m_lp.emplace(key, newIndex()).first;
    m_pl.emplace(it->second, key);
  }

  // Required: the extension is appended to whatever name is stored.
  const std::string name = it->second + extension(logical);
  if (!vu_file::exists(m_folder + "\\" + name)) {
    vu_file file(m_folder, name);
    file.open(o_append);
    file.close();
  }
  VU_TRACE_M(" STGIndex (create): Set need update flag to true: index.dat will be updated");
  VU_TRACE_M("           folder : ", m_folder);
  m_needUpdate = true;
  return name;
}

void STGIndex::_remove(const std::string& logical, long timestamp) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  fillMaps();
  const auto it = m_lp.find(entryAndTS(logical, timestamp));
  if (it == m_lp.end()) return;

  const std::string path = m_folder + "\\" + pName(it);
  m_pl.erase(it->second);
  auto removed = m_lp.extract(it);
  m_removed.emplace_back(std::move(removed.key()), std::move(removed.mapped()));
  if (vu_file::exists(path)) {
    vu_file::chmodW(path);
    vu_file::remove(path);
    if (vu_file::exists(path)) VU_ERROR("STGIndex: removal of file failed: ", path);
  }
  VU_TRACE_M(" STGIndex (remove) : Set need update flag to true: index.dat will be updated");
  VU_TRACE_M("            folder : ", m_folder);
  m_needUpdate = true;
}

bool STGIndex::_rename(const std::string& oldLogical, long oldTs, const std::string& newLogical,
                       long newTs) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  fillMaps();
  const auto it = m_lp.find(entryAndTS(oldLogical, oldTs));
  if (it == m_lp.end()) return true;
  if (_contains(newLogical, newTs)) _remove(newLogical, newTs);
  const std::string new_file = _create(newLogical, newTs);

  const std::string old_path = m_folder + "\\" + pName(it);
  if (!vu_file::copyFile(old_path, m_folder + "\\" + new_file, true)) {
    VU_ERROR("STGIndex: rename: copy failed: ", old_path);
    _remove(newLogical, newTs);
    return false;
  }
  vu_file::chmodW(old_path);
  vu_file::remove(old_path);
  // Required: the old entry stays in both maps. Its file is gone, so it is not written back.
  VU_TRACE_M(" STGIndex (rename): Set need update flag to true: index.dat will be updated");
  VU_TRACE_M("           folder : ", m_folder);
  m_needUpdate = true;
  return true;
}
