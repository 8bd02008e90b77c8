#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "file/path_text.h"
#include "index/index_format.h"
#include "index/index_gate.h"
#include "platform/host/trace.h"
#include "storage/guard.h"
#include "vu_storage.h"

using storage::guarded;
using storage::kSource;
using vu_host::trace_level;

namespace {

bool is_document(std::string_view logical) {
  path_text::Cut cut;
  return path_text::cut_at_last_dot(logical, cut) && index_format::is_document_extension(cut.after);
}

/// Appends the entries of a folder's index that @p keep selects, in the order of the physical
/// names. If this fails, for example the save after an adoption, both lists stay as they are.
template <class Keep>
void list_entries(const std::string& folder, std::vector<std::string>& logical_names,
                  std::vector<std::string>& physical_names, Keep keep) {
  std::vector<std::string> logical;
  std::vector<std::string> physical;
  IndexGate::visit_files(folder, [&](std::string_view file, std::string_view name) {
    if (!keep(name)) return;
    logical.emplace_back(name);
    physical.emplace_back(file);
  });
  logical_names.reserve(logical_names.size() + logical.size());
  physical_names.reserve(physical_names.size() + physical.size());
  std::move(logical.begin(), logical.end(), std::back_inserter(logical_names));
  std::move(physical.begin(), physical.end(), std::back_inserter(physical_names));
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
        list_entries(folder, logical_names, physicalNames, [](std::string_view) { return true; });
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
        list_entries(folder, logical_names, physicalNames, [&](std::string_view logical) {
          return is_document(logical) && (wanted == nullptr || kept.contains(logical));
        });
      },
      failed, failed);
  return logical_names;
}
