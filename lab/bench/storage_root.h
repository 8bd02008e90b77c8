#pragma once

#include <string>

#include "lab/bench/stage.h"

namespace bench {

/// The storage of this process, which is initialised once.
class StorageRoot {
 public:
  static const StorageRoot& of(Stage& stage);

  /// The folder of an area.
  std::string area(const std::string& name) const { return m_path + "/storage/" + name; }
  /// The hash bucket of a corporate document.
  std::string bucket(const std::string& owner, const std::string& logical) const;
  /// Makes @p folder the mail folder of @p owner through a symbolic link. @return the owner.
  std::string mailbox(const std::string& folder, const std::string& owner) const;

 private:
  explicit StorageRoot(std::string path);

  std::string m_path;
};

}  // namespace bench
