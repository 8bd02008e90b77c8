#include "lab/bench/storage_root.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "lab/bench/bare.h"
#include "vu_storage.h"

namespace bench {

const StorageRoot& StorageRoot::of(Stage& stage) {
  static const StorageRoot root(stage.room(Place::kDisk, "root"));
  return root;
}

StorageRoot::StorageRoot(std::string path) : m_path(std::move(path)) {
  if (!vu_storage::initRootStorage(m_path, true, true)) bare::broken("no storage in", m_path);
}

std::string StorageRoot::bucket(const std::string& owner, const std::string& logical) const {
  std::string folder;
  vu_storage::createUserOrDomainNameDirectory(owner, logical, STG::CorporateRepository, folder,
                                              true);
  std::replace(folder.begin(), folder.end(), '\\', '/');
  return folder;
}

std::string StorageRoot::mailbox(const std::string& folder, const std::string& owner) const {
  const std::string link = area("mail") + "/" + owner;
  if (!std::filesystem::is_symlink(link)) std::filesystem::create_directory_symlink(folder, link);
  return owner;
}

}  // namespace bench
