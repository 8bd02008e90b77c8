#include <algorithm>
#include <optional>

#include "file/handle_core.h"
#include "file/path_text.h"
#include "file/replacement.h"
#include "index/index_format.h"
#include "index/index_source.h"
#include "index/index_state.h"
#include "index/name_list.h"
#include "index/numbers.h"
#include "index/saving.h"
#include "platform/host/trace.h"
#include "stg_index.h"

using index_format::file_name_of;
using index_format::logical_of;

namespace {

/// Whether the text of the index contains the extension of category files.
bool may_name_a_category(const std::string& folder) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  vu_file file(folder, kIndexFile);
  const std::optional<FileText> bytes = read_index(file, folder);
  if (!bytes) return false;
  std::string storage;
  return replacement::text_of(bytes->view(), storage).find(".ctg") != std::string_view::npos;
}

/// Like vu_file::getExtension(), without its trace scope.
std::string_view extension_without_dot(std::string_view name) {
  const std::string_view extension = index_format::extension_of(name);
  return extension.empty() ? extension : extension.substr(1);
}

}  // namespace

// The public operations and queries. Most construct an instance, which saves its changes at the
// end.

bool STGIndex::exists(const std::string& folder, const std::string& logical, long timestamp,
                      std::string& physical) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  if (vu_file::exists(path_text::join(folder, logical))) {
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
  // The lock lasts until the entry's file is checked. A rename that replaces the entry removes the
  // old file, so a check without the lock could find no file although the entry exists.
  const FileText bytes = read_to_end(file);
  std::string storage;
  const std::string_view text = replacement::text_of(bytes.view(), storage);

  // Of several lines with the key, the first valid one is the entry.
  const std::string key = entryAndTS(logical, timestamp);
  FolderFiles files(folder);
  index_format::LinesOfKey lines(text, key);
  index_format::Line line;
  while (lines.next(line)) {
    std::string name = file_name_of(key, line.stored);
    // A line is valid if one of two files exists, and the entry's file is one of them.
    const bool is_there = files.probe(name) == Presence::kThere;
    const LineState state =
        is_there ? LineState::kValid : state_by_probing(key, line.stored, files);
    if (state == LineState::kValid) {
      physical = std::move(name);
      return is_there;
    }
    if (state == LineState::kUnknown) report_unknown_line(folder, line.key, line.stored);
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
  bool found = false;
  const auto take = [&](std::string_view key) {
    found = true;
    timestamp = std::max<long>(timestamp, index_format::timestamp_of(key));
  };
  if (synchronizes()) {
    const STGIndex index(folder);
    timestamp = 0;
    index.m_state->visit([&](std::string_view key, std::string_view) {
      if (logical_of(key) == logical) take(key);
    });
    return found;
  }
  // Nothing is adopted, so only the lines of this name have to be read.
  vu_file file(folder, kIndexFile);
  const std::optional<FileText> bytes = read_index(file, folder);
  timestamp = 0;
  if (!bytes) return false;
  std::string storage;
  FolderFiles files(folder);
  index_format::LinesOfName lines(replacement::text_of(bytes->view(), storage), logical);
  index_format::Line line;
  while (lines.next(line)) {
    const LineState state = state_by_probing(line, files);
    if (state == LineState::kValid) take(line.key);
    if (state == LineState::kUnknown) report_unknown_line(folder, line.key, line.stored);
  }
  return found;
}

void STGIndex::plValues(const std::string& folder, NameMap& out) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  out.clear();
  const STGIndex index(folder);
  add_physical_names(*index.m_state, out);
}

void STGIndex::lpValues(const std::string& folder, NameMap& out) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  out.clear();
  const STGIndex index(folder);
  index.m_state->visit([&](std::string_view key, std::string_view stored) {
    out.emplace_hint(out.end(), logical_of(key), file_name_of(key, stored));
  });
}

void STGIndex::getCategories(const std::string& folder, NameMap& out) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  out.clear();
  // Most folders have no category file. With synchronisation on, the load could adopt one.
  if (!synchronizes() && !may_name_a_category(folder)) return;
  const STGIndex index(folder);
  index.m_state->visit([&](std::string_view key, std::string_view stored) {
    const std::string_view logical = logical_of(key);
    if (extension_without_dot(logical) == "ctg")
      out.emplace_hint(out.end(), logical, file_name_of(key, stored));
  });
}

void STGIndex::getVUDocs(const std::string& folder, NameMap& out) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  out.clear();
  const STGIndex index(folder);
  add_physical_names(*index.m_state, out, [](std::string_view logical) {
    return index_format::is_document_extension(extension_without_dot(logical));
  });
}

std::string STGIndex::getPhysicalName(const std::string& folder, const std::string& logical) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  return create(folder, logical, 0);
}

std::string STGIndex::getPhysicalPath(const std::string& folder, const std::string& logical) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  return path_text::join(folder, getPhysicalName(folder, logical));
}

void STGIndex::updateIndexFile(const std::string& folder) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  STGIndex index(folder);
  index.m_needUpdate = true;
}

void STGIndex::checkIndexFile(const std::string& folder) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  if (!vu_file::exists(path_text::join(folder, kIndexFile))) updateIndexFile(folder);
}
