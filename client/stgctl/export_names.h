#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "client/admin/entries.h"
#include "client/admin/text.h"

namespace stgctl {

/// Paths of portable names for paths that come folder by folder.
class PortablePaths {
 public:
  void clear();
  /// The portable form of a path of names between "/".
  std::string take(std::string_view path);

 private:
  struct Folder {
    std::string name;
    std::string portable;
    admin::PortableNames names;
  };
  admin::PortableNames m_names;
  std::vector<Folder> m_folders;  ///< those that the last path led through, from the top
};

/// Where each item of an inventory lies in an export, with "/" between the names:
///
///     docs/OWNER/TIMESTAMP/NAME                    a version
///     docs/OWNER/TIMESTAMP.parts/NAME/_STAMP/...   its parts
///     list/OWNER/...                               files that are addressed by path
///
/// All names are portable, and unlike in each folder.
class ExportNames {
 public:
  /// For the next item of the inventory.
  std::string take(const admin::Holding& holding);

 private:
  void enter(const admin::Holding& holding);

  bool m_has_begun = false;
  admin::Area m_area = admin::Area::kDocs;
  std::string m_owner;
  admin::PortableNames m_owners;
  std::string m_folder;    ///< of the owner
  std::string m_document;  ///< the last version's name
  std::unordered_map<std::int32_t, admin::PortableNames> m_documents;
  PortablePaths m_paths;
};

}  // namespace stgctl
