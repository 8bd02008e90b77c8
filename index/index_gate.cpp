#include "index/index_gate.h"

#include <span>

#include "index/index_format.h"
#include "index/index_state.h"
#include "index/name_list.h"

os::Status IndexGate::visit(const std::string& folder, const Visit& visit) {
  STGIndex index(folder);
  index.close();
  bool goes_on = true;
  const auto visit_entry = [&](std::string_view key, std::string_view stored) {
    goes_on = goes_on && visit(index_format::logical_of(key), index_format::timestamp_of(key),
                               index_format::file_name_of(key, stored));
    return goes_on;
  };
  index.m_state->walk(
      [&](std::span<const IndexLine> lines) {
        for (const IndexLine& line : lines) {
          if (!visit_entry(line.key, line.stored)) return;
        }
      },
      visit_entry);
  return adopts() ? index.m_state->files().why_not_listed() : os::Status();
}

void IndexGate::visit_files(const std::string& folder, const VisitFile& visit) {
  const STGIndex index(folder);
  visit_physical_names(*index.m_state, visit);
}

std::optional<std::string> IndexGate::file_of(const std::string& folder, const std::string& logical,
                                              long version) {
  const STGIndex index(folder);
  const std::string key = STGIndex::entryAndTS(logical, version);
  const auto stored = index.m_state->find(key);
  if (!stored) return std::nullopt;
  return index_format::file_name_of(key, *stored);
}

bool IndexGate::remove_if(const std::string& folder, const std::string& logical, long version,
                          const Condition& is_wanted) {
  STGIndex index(folder);
  const std::string key = STGIndex::entryAndTS(logical, version);
  const auto stored = index.m_state->find(key);
  if (!stored || !is_wanted(index_format::file_name_of(key, *stored))) return false;
  index._remove(logical, version);
  return true;
}
