#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "platform/host/trace.h"
#include "stg_index.h"
#include "storage/guard.h"
#include "vu_storage.h"

using storage::guarded;
using storage::kSource;
using vu_host::trace_level;

namespace {

/// Appends the entries of a folder's index that @p keep selects, in the order of the physical
/// names. Both lists keep the same length: nothing can throw between the two appends.
template <class Keep>
void list_entries(const std::string& folder, std::vector<std::string>& logical_names,
                  std::vector<std::string>& physical_names, Keep keep) {
  STGIndex::NameMap entries;
  STGIndex::plValues(folder, entries);
  logical_names.reserve(logical_names.size() + entries.size());
  physical_names.reserve(physical_names.size() + entries.size());
  for (auto& [physical, logical] : entries) {
    if (!keep(logical)) continue;
    physical_names.push_back(physical);
    logical_names.push_back(std::move(logical));
  }
}

}  // namespace

std::vector<std::string> vu_storage::getAllFileListFromIndexFile(
    const std::string& folder, std::vector<std::string>& physicalNames) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  std::vector<std::string> logical_names;
  const auto failed = [&](const auto&...) {
    // Required: the same text for every exception.
    VU_ERROR("vu_storage::getAllFileListFromIndexFile : ", folder, " isn't a directory");
  };
  guarded(
      [&] {
        checkInit();
        if (!vu_file::is_dir(folder)) return;
        list_entries(folder, logical_names, physicalNames, [](const std::string&) { return true; });
      },
      failed, failed);
  return logical_names;
}

std::vector<std::string> vu_storage::getFileListFromIndexFile(
    const std::string& folder, std::vector<std::string>& physicalNames,
    const std::vector<std::string>* wanted) {
  VU_TRACE_SCOPE(kSource, trace_level::xl);
  std::vector<std::string> logical_names;
  const auto failed = [&](const auto&...) {
    // Required: the same text for every exception.
    VU_ERROR("vu_storage::getFileListFromIndexFile : ", folder, " isn't a directory");
  };
  const auto initialise = [] {
    checkInit();
    return true;
  };
  if (!guarded(false, initialise, failed, failed)) return logical_names;
  // Required: throws if this is not a folder; getAllFileListFromIndexFile() does not.
  if (!vu_file::is_dir(folder)) throw vu_file_except("not a folder: " + folder);

  guarded(
      [&] {
        std::unordered_set<std::string_view> kept;
        if (wanted != nullptr) kept.insert(wanted->begin(), wanted->end());
        list_entries(folder, logical_names, physicalNames, [&](const std::string& logical) {
          if (!isVuDocExt(vu_file::getExtension(logical))) return false;
          return wanted == nullptr || kept.contains(logical);
        });
      },
      failed, failed);
  return logical_names;
}
