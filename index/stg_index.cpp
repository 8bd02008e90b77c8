#include "stg_index.h"

#include <atomic>
#include <exception>
#include <stdexcept>
#include <utility>

#include "file/handle_core.h"
#include "file/path_text.h"
#include "file/replacement.h"
#include "index/folder_files.h"
#include "index/index_format.h"
#include "index/index_source.h"
#include "index/index_state.h"
#include "index/numbers.h"
#include "index/saving.h"
#include "platform/host/trace.h"

// The instance: load, and save in the destructor (saving.cpp). Names and adoption:
// index_naming.cpp; changes of entries: index_entries.cpp; public operations: index_operations.cpp,
// cleaning.cpp, migration.cpp.

bool STGIndex::m_autoSynchronizeToFolder = true;

void STGIndex::setSynchronizeMode(bool synchronize) {
  std::atomic_ref(m_autoSynchronizeToFolder).store(synchronize, std::memory_order_release);
}

STGIndex::STGIndex() : m_state(std::make_unique<IndexState>(m_folder)) {}

STGIndex::STGIndex(const STGIndex& other)
    : vu_file(other),
      m_folder(other.m_folder),
      m_needUpdate(other.m_needUpdate),
      m_state(std::make_unique<IndexState>(*other.m_state)) {
  m_state->begins_to_live();
}

STGIndex& STGIndex::operator=(const STGIndex& other) {
  vu_file::operator=(other);
  m_folder = other.m_folder;
  m_state->take_over(*other.m_state);
  m_needUpdate = other.m_needUpdate;
  return *this;
}

std::optional<FileText> read_index(vu_file& index, const std::string& folder) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  if (!vu_file::is_dir(folder)) {
    VU_ERROR("STGIndex::STGIndex() : the folder ", folder, " doesn't exist !!!");
  }
  // If the system cannot tell whether index.dat exists, open() fails with the reason.
  if (presence_of(index.getFilePath()) == Presence::kMissing) return std::nullopt;
  // Required: the lock lasts as long as the operation.
  index.open(vu_file::o_read);
  return read_to_end(index);
}

STGIndex::STGIndex(const std::string& folder)
    : vu_file(folder, kIndexFile), m_folder(folder), m_state(std::make_unique<IndexState>(folder)) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  if (std::optional<FileText> bytes = read_index(*this, m_folder)) {
    m_state->load(std::move(*bytes));
    if (m_state->has_unknown_lines()) report_unknown_lines(*m_state->loaded(), m_folder);
  }
  if (synchronizes()) synchronizeToFolder();
}

bool STGIndex::synchronizes() {
  return std::atomic_ref(m_autoSynchronizeToFolder).load(std::memory_order_acquire);
}

STGIndex::~STGIndex() noexcept(false) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  try {
    close();
    if (m_needUpdate) saveIndexFile();
  } catch (...) {
    // A second exception during unwinding would terminate the host program.
    if (!m_state->is_unwound()) throw;
    VU_ERROR(text_of_current_exception());
  }
}

void STGIndex::saveIndexFile() {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  SaveWatch::note({});
  Saved saved = save_index(*this, *m_state);
  const std::exception_ptr raised = saved.raised;
  SaveWatch::note(std::move(saved));
  if (raised) std::rethrow_exception(raised);
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
  const std::string path = path_text::join(folder, physical);
  return vu_file::exists(path) || vu_file::exists(path + extension(entryOnly(key)));
}

void STGIndex::string2Maps(const std::string& folder, std::string text, NameMap& lp, NameMap& pl) {
  FolderFiles files(folder);
  const IndexReading reading(text, files);
  for (const IndexLine& line : reading.lines) {
    if (line.state != LineState::kValid) continue;
    lp.emplace(line.key, line.stored);
    pl.emplace(line.stored, line.key);
  }
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
