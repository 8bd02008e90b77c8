#include "stg_index.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <stdexcept>

#include "file/handle_core.h"
#include "file/replacement.h"
#include "index/folder_files.h"
#include "index/index_format.h"
#include "index/index_source.h"
#include "index/loaded_index.h"
#include "index/visit_entries.h"
#include "index/width.h"
#include "platform/host/trace.h"

// The instance: loading, merging and saving. Naming and adoption: index_naming.cpp; changes of entries:
// index_entries.cpp; the public operations: index_operations.cpp, cleaning.cpp, migration.cpp.

namespace {

/// So many lines at most are asked for one by one: beyond, a listing of the folder costs less.
constexpr std::size_t kAskedSingly = 4;

/// The text of an open index.
std::string index_text(vu_file& file) {
  const FileText bytes = read_to_end(file);
  std::string storage;
  return std::string(replacement::text_of(bytes.view(), storage));
}

}  // namespace

bool STGIndex::m_autoSynchronizeToFolder = true;

void STGIndex::setSynchronizeMode(bool synchronize) {
  std::atomic_ref(m_autoSynchronizeToFolder).store(synchronize, std::memory_order_release);
}

STGIndex::STGIndex() : m_exceptionsAtConstruction(std::uncaught_exceptions()) {}

STGIndex::STGIndex(const STGIndex& other)
    : vu_file(other),
      m_folder(other.m_folder),
      m_loaded(other.m_loaded),
      m_hasMaps(other.m_hasMaps),
      m_lp(other.m_lp),
      m_pl(other.m_pl),
      m_removed(other.m_removed),
      m_needUpdate(other.m_needUpdate),
      m_isSure(other.m_isSure),
      m_exceptionsAtConstruction(std::uncaught_exceptions()) {}

STGIndex& STGIndex::operator=(const STGIndex& other) {
  vu_file::operator=(other);
  m_folder = other.m_folder;
  m_loaded = other.m_loaded;
  m_hasMaps = other.m_hasMaps;
  m_lp = other.m_lp;
  m_pl = other.m_pl;
  m_removed = other.m_removed;
  m_needUpdate = other.m_needUpdate;
  m_isSure = other.m_isSure;
  return *this;
}

STGIndex::STGIndex(const std::string& folder)
    : vu_file(folder, kIndexFile),
      m_folder(folder),
      m_exceptionsAtConstruction(std::uncaught_exceptions()) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  if (!vu_file::is_dir(m_folder)) {
    VU_ERROR("STGIndex::STGIndex() : the folder ", m_folder, " doesn't exist !!!");
  }

  FolderFiles files(m_folder);
  if (files.probe(getFilePath())) {
    // Required: the handle, and with it the shared lock, stays until the destructor.
    open(o_read);
    const auto loaded = std::make_shared<LoadedIndex>(index_text(*this));
    files.load(*loaded);
    m_loaded = loaded;
    m_hasMaps = false;
    // Out of order, the entries alone do not tell which line of a name counts.
    if (!loaded->ascending) fillMaps();
  }
  m_isSure = files.is_sure();
  if (std::atomic_ref(m_autoSynchronizeToFolder).load(std::memory_order_acquire)) {
    synchronizeToFolder(files);
  }
}

STGIndex::~STGIndex() noexcept(false) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  try {
    close();
    if (m_needUpdate) mergeAndSave();
  } catch (...) {
    // A second exception during unwinding would end the host program.
    if (std::uncaught_exceptions() <= m_exceptionsAtConstruction) throw;
    VU_ERROR(text_of_current_exception());
  }
}

void STGIndex::mergeAndSave() {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  VU_TRACE_M(" STGIndex: (begin) updating index.dat ...");
  VU_TRACE_M("  folder : ", m_folder);
  try {
    open(o_append);
  } catch (const vu_file_except& e) {
    VU_WARNING(
        "STGIndex::~STGIndex(): Unable to create/update index.dat - "
        "please verify that you have write access and disk is not full."
        "\n Reason: ",
        e.what());
    return;
  }

  const FileText bytes = read_to_end(*this);
  std::string storage;
  mergeFrom(std::string(replacement::text_of(bytes.view(), storage)));
  saveIndexFile(bytes.view());
  VU_TRACE_M(" STGIndex: (end) index.dat is uptodate");  // sic
  VU_TRACE_M("  folder : ", m_folder);
}

void STGIndex::mergeFrom(std::string text) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  FolderFiles files(m_folder);
  if (m_loaded && m_loaded->complete && text == m_loaded->text) {
    // The very text that was loaded, every line of it: only what was removed since can be new.
    std::sort(m_removed.begin(), m_removed.end());
    for (const auto& [key, stored] : m_removed) {
      const IndexEntry* line = m_loaded->find(key);
      if (line == nullptr || line->stored != stored) continue;
      const bool is_valid = m_removed.size() > kAskedSingly ? files.is_valid(key, stored)
                                                            : validIndexLine(m_folder, key, stored);
      if (is_valid) mergeEntry(files, key, stored);
    }
    m_isSure = m_isSure && files.is_sure();
    return;
  }

  fillMaps();
  const auto on_disk = std::make_shared<LoadedIndex>(std::move(text));
  files.load(*on_disk);
  m_loaded = on_disk;
  if (on_disk->ascending) {
    auto mine = m_lp.begin();
    for (const IndexEntry& entry : on_disk->entries) {
      while (mine != m_lp.end() && mine->first < entry.key) ++mine;
      const bool is_known =
          mine != m_lp.end() && mine->first == entry.key && mine->second == entry.stored;
      if (!is_known) mergeEntry(files, entry.key, entry.stored);
    }
  } else {
    NameMap lp;
    NameMap pl;
    on_disk->fill(lp, pl);
    for (const auto& [key, stored] : lp) mergeEntry(files, key, stored);
  }
  m_isSure = m_isSure && files.is_sure();
}

void STGIndex::mergeEntry(FolderFiles& files, std::string_view key, std::string_view stored) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  const auto [mine, is_new] = m_lp.try_emplace(std::string(key), stored);
  if (!is_new) {
    // Somebody may have removed the entry since it was loaded here, and made it anew: a line of mine whose
    // file is gone must not keep the new one out.
    if (mine->second == stored || files.is_valid(key, mine->second)) return;
    m_pl.erase(mine->second);
    mine->second = stored;
  }
  VU_TRACE_M(" add in my maps ", key, "/", stored);
  m_pl.emplace(stored, key);
}

void STGIndex::saveIndexFile(std::string_view bytes) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  FolderFiles files(m_folder);
  std::string text;
  text.reserve(bytes.size() + 256);
  std::vector<IndexEntry> lines;
  visitEntries([&](std::string_view key, std::string_view stored) {
    lines.push_back({key, stored});
  });
  files.visit_valid(lines, [&](const IndexEntry& line) {
    text.append(line.key).append("/").append(line.stored).append("\n");
  });
  if (!m_isSure || !files.is_sure()) {
    // A line whose file could not be asked for must not be lost with the change.
    VU_ERROR(
        "STGIndex: index.dat is left as it is, for the system does not tell which files exist: ",
        m_folder);
    close();
    return;
  }
  if (text.empty()) text = " ";
  replace_and_close(*this, bytes, text);
}

void STGIndex::fillMaps() const {
  if (m_hasMaps) return;
  m_loaded->fill(m_lp, m_pl);
  m_hasMaps = true;
}

// ---- keys, names and lines -------------------------------------------------------------------

std::string STGIndex::entryAndTS(const std::string& logical, long timestamp) {
  return index_format::key_of(logical, clamp32(timestamp));
}

std::string STGIndex::entryOnly(const std::string& key) {
  if (key.size() < index_format::kStampLength) throw std::out_of_range("STGIndex::entryOnly");
  return std::string(index_format::logical_of(key));
}

long STGIndex::tsOnly(const std::string& key) {
  return index_format::parse_decimal(
      std::string_view(key).substr(key.size() - (index_format::kStampLength - 1)));
}

std::string STGIndex::extension(const std::string& name) {
  return std::string(index_format::extension_of(name));
}

bool STGIndex::validIndexLine(const std::string& folder, const std::string& key,
                              const std::string& physical) {
  const std::string path = folder + "\\" + physical;
  return vu_file::exists(path) || vu_file::exists(path + extension(entryOnly(key)));
}

void STGIndex::string2Maps(const std::string& folder, std::string_view text, NameMap& lp,
                           NameMap& pl) {
  FolderFiles files(folder);
  LoadedIndex index{std::string(text)};
  files.load(index);
  index.fill(lp, pl);
}

std::string STGIndex::lName(NameMap::const_iterator it) { return entryOnly(it->first); }

long STGIndex::ts(NameMap::const_iterator it) { return tsOnly(it->first); }

std::string STGIndex::pName(NameMap::const_iterator it) {
  return index_format::file_name_of(it->first, it->second);
}

bool STGIndex::iSsambaOrT101(const std::string& name) {
  return index_format::is_escaped_form(name);
}

void STGIndex::UnescapeVU(std::string& name) { name = index_format::unescape(name); }
