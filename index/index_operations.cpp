#include <algorithm>

#include "file/handle_core.h"
#include "file/replacement.h"
#include "index/document_extensions.h"
#include "index/index_format.h"
#include "index/index_source.h"
#include "index/visit_entries.h"
#include "index/width.h"
#include "platform/host/trace.h"
#include "stg_index.h"

using index_format::file_name_of;
using index_format::logical_of;

// The public operations and queries. Each builds its instance and lets it go, which writes a changed
// index back.

bool STGIndex::exists(const std::string& folder, const std::string& logical, long timestamp,
                      std::string& physical) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  if (vu_file::exists(folder + "\\" + logical)) {
    physical = logical;
    return true;
  }
  checkIndexFile(folder);

  vu_file file(folder, kIndexFile);
  try {
    file.open(o_read);
  } catch (const vu_file_except& e) {
    VU_WARNING("STGIndex::exists(): Unable to open index.dat file while checking for existence of ",
               logical, " in directory ", folder, "\n Reason: ", e.what());
    return false;
  }
  const FileText bytes = read_to_end(file);
  file.close();
  std::string storage;
  const std::string_view text = replacement::text_of(bytes.view(), storage);

  // Of several lines of one key the first valid one counts; the others need not be looked at.
  const std::string key = entryAndTS(logical, timestamp);
  index_format::LinesOfKey lines(text, key);
  index_format::Line line;
  while (lines.next(line)) {
    const std::string name = file_name_of(key, line.stored);
    // When the entry's file is there the line is valid: that file is one of the two that validity asks for.
    const bool is_there = vu_file::exists(folder + "\\" + name);
    if (is_there || validIndexLine(folder, key, std::string(line.stored))) {
      physical = name;
      return is_there;
    }
  }
  return false;
}

std::string STGIndex::create(const std::string& folder, const std::string& logical,
                             long timestamp) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  std::string physical;
  if (exists(folder, logical, timestamp, physical)) return physical;
  return STGIndex(folder)._create(logical, timestamp);
}

void STGIndex::remove(const std::string& folder, const std::string& logical, long timestamp) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  STGIndex(folder)._remove(logical, timestamp);
}

void STGIndex::rename(const std::string& folder, const std::string& oldLogical, long oldTs,
                      const std::string& newLogical, long newTs) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  if (oldLogical == newLogical && clamp32(oldTs) == clamp32(newTs)) return;
  STGIndex(folder)._rename(oldLogical, oldTs, newLogical, newTs);
}

bool STGIndex::lastVersion(const std::string& folder, const std::string& logical, long& timestamp) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  const STGIndex index(folder);
  timestamp = 0;
  bool found = false;
  index.visitEntries([&](std::string_view key, std::string_view) {
    if (logical_of(key) != logical) return;
    found = true;
    timestamp = std::max<long>(timestamp, index_format::timestamp_of(key));
  });
  return found;
}

void STGIndex::plValues(const std::string& folder, NameMap& out) {
  bool is_sure = false;
  plValues(folder, out, is_sure);
}

void STGIndex::plValues(const std::string& folder, NameMap& out, bool& isSure) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  out.clear();
  const STGIndex index(folder);
  index.addPhysicalNames(out);
  isSure = index.m_isSure;
}

void STGIndex::addPhysicalNames(NameMap& out) const {
  visitEntries([&](std::string_view key, std::string_view stored) {
    out.emplace(file_name_of(key, stored), logical_of(key));
  });
}

void STGIndex::lpValues(const std::string& folder, NameMap& out) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  out.clear();
  const STGIndex index(folder);
  index.visitEntries([&](std::string_view key, std::string_view stored) {
    out.emplace_hint(out.end(), logical_of(key), file_name_of(key, stored));
  });
}

void STGIndex::getCategories(const std::string& folder, NameMap& out) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  out.clear();
  const STGIndex index(folder);
  index.visitEntries([&](std::string_view key, std::string_view stored) {
    const std::string logical(logical_of(key));
    if (getExtension(logical) == "ctg") out.emplace(logical, file_name_of(key, stored));
  });
}

void STGIndex::getVUDocs(const std::string& folder, NameMap& out) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  out.clear();
  const STGIndex index(folder);
  index.visitEntries([&](std::string_view key, std::string_view stored) {
    const std::string logical(logical_of(key));
    if (is_document_extension(getExtension(logical)))
      out.emplace(file_name_of(key, stored), logical);
  });
}

std::string STGIndex::getPhysicalName(const std::string& folder, const std::string& logical) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  return create(folder, logical, 0);
}

std::string STGIndex::getPhysicalPath(const std::string& folder, const std::string& logical) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  return folder + "\\" + getPhysicalName(folder, logical);
}

void STGIndex::updateIndexFile(const std::string& folder) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  STGIndex index(folder);
  index.m_needUpdate = true;
}

void STGIndex::checkIndexFile(const std::string& folder) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  if (!vu_file::exists(folder + "\\" + kIndexFile)) updateIndexFile(folder);
}
