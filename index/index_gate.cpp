#include "index/index_gate.h"

#include "index/folder_files.h"
#include "index/index_format.h"
#include "index/index_state.h"

bool IndexGate::visit(const std::string& folder, const Visit& visit) {
  STGIndex index(folder);
  index.close();
  bool goes_on = true;
  index.m_state->visit([&](std::string_view key, std::string_view stored) {
    goes_on = goes_on && visit(index_format::logical_of(key), index_format::timestamp_of(key),
                               index_format::file_name_of(key, stored));
  });
  return goes_on;
}

std::string IndexGate::create_own(const std::string& folder, const std::string& logical,
                                  long version) {
  STGIndex index(folder);
  const std::string stored = index.newIndex();
  if (stored == index_format::kTroubleName) return {};
  const std::string key = STGIndex::entryAndTS(logical, version);
  // The counter returns its first name again after the largest number.
  const std::string path = folder + "\\" + index_format::file_name_of(key, stored);
  if (stored == index_format::kFirstName &&
      (index.m_state->is_anothers(key, stored) || presence_of(path) != Presence::kMissing))
    return {};
  index.m_state->insert(key, stored);
  return index._create(logical, version);
}
