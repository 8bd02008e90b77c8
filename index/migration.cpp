#include "index/index_format.h"
#include "index/index_source.h"
#include "index/mail_root.h"
#include "index/read_list.h"
#include "platform/host/trace.h"
#include "stg_index.h"

// The one-time conversion of a user's mail folder from escaped names.

namespace {

constexpr const char* kMarker = "k1mailboxcompliant";
constexpr const char* kReadList = "read.txt";

}  // namespace

void STGIndex::migrateInboxRead(const std::string& user) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  if (user.empty()) {
    VU_WARNING(" Migration on inbox read need an non empty user ");  // sic
    return;
  }
  const std::string folder = initialised_mail_root() + "\\" + user;
  if (!vu_file::is_dir(folder)) {
    vu_file::createDir(folder);
    VU_WARNING("User ", user, " has an empty inbox read. No need migration);");  // sic
    return;
  }
  std::string marker_file;
  if (exists(folder, kMarker, 0, marker_file)) return;

  updateIndexFile(folder);
  ReadList read_list(folder, getPhysicalName(folder, kReadList));
  STGIndex index(folder);
  if (index.unescapeEntries(read_list)) index._create(kMarker, 0);
}

bool STGIndex::unescapeEntries(ReadList& readList) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  bool complete = true;
  fillMaps();
  // Entries that come into the map on the way bear generated names and are passed over.
  for (auto it = m_lp.cbegin(); it != m_lp.cend(); ++it) {
    const std::string name = lName(it);
    if (name != pName(it) || !index_format::is_escaped_form(name)) continue;
    const std::string unescaped = index_format::unescape(name);
    if (unescaped == name) continue;
    if (unescaped.find_first_of("/\n") != std::string::npos) {
      VU_WARNING("STGIndex: migration: left as it is, no index line can hold its unescaped name: ",
                 m_folder, "\\", name);
      continue;
    }
    if (_rename(name, 0, unescaped, 0)) {
      readList.unescape(name);
    } else {
      complete = false;
    }
  }
  return complete;
}
