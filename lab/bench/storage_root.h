#pragma once

#include <string>

#include "lab/bench/stage.h"

namespace bench {

/// The storage of this process: its root is initialised once.
class StorageRoot {
 public:
  static const StorageRoot& of(Stage& stage);

  /// The folder of an area.
  std::string area(const std::string& name) const { return m_path + "/storage/" + name; }
  /// The hash bucket that a corporate document of an owner belongs to.
  std::string bucket(const std::string& owner, const std::string& logical) const;
  /// An owner whose mail folder is @p folder, through a link.
  std::string mailbox(const std::string& folder, const std::string& owner) const;

 private:
  explicit StorageRoot(std::string path);

  std::string m_path;
};

}  // namespace bench
