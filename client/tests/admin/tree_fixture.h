#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "client/admin/check.h"
#include "client/admin/tree.h"
#include "stg_index.h"
#include "storage/layout.h"
#include "tests/support/scratch.h"
#include "vu_storage.h"

/// @file
/// A storage tree for tests, created with the library's index and by hand.

/// A path with the system's separators, as the code under test expects it.
inline std::string system_form(std::string path) {
  const char other = admin::sys::kSeparator == '/' ? '\\' : '/';
  std::replace(path.begin(), path.end(), other, admin::sys::kSeparator);
  return path;
}

/// The names, kinds, bytes and modification times in a folder. A reader must not change them.
inline std::map<std::string, std::string> snapshot(const std::string& folder) {
  std::map<std::string, std::string> all;
  const auto describe = [&](const std::filesystem::path& path) {
    const admin::sys::Info info = admin::sys::describe(path.string());
    all[path.string()] = std::to_string(static_cast<int>(info.kind)) + " " +
                         std::to_string(info.size) + " " + std::to_string(info.modify_time) + " ";
  };
  describe(folder);
  for (const auto& each : std::filesystem::recursive_directory_iterator(folder)) {
    describe(each.path());
    if (each.is_regular_file() && !each.is_symlink())
      all[each.path().string()] += read_file(each.path().string());
  }
  return all;
}

/// The differences between two snapshots as text; empty if there are none.
inline std::string difference(const std::map<std::string, std::string>& before,
                              const std::map<std::string, std::string>& after) {
  std::string text;
  for (const auto& [path, what] : before) {
    const auto found = after.find(path);
    if (found == after.end()) text += path + " has gone\n";
    if (found != after.end() && found->second != what)
      text += path + " was " + what + ", is " + found->second + "\n";
  }
  for (const auto& [path, what] : after) {
    if (!before.count(path)) text += path + " is new\n";
  }
  return text;
}

class AdminTree : public ::testing::Test {
 protected:
  AdminTree() {
    STGIndex::setSynchronizeMode(false);
    for (const admin::Area area : admin::kAreas)
      make_folder(storage() + "\\" + std::string(name_of(area)));
  }

  std::string root() const { return m_root.path(); }
  std::string storage() const { return m_root.path("storage"); }

  admin::Tree tree(admin::Layout layout = admin::Layout::kOwner) const {
    std::string why;
    const auto found = admin::locate({system_form(root()), "", layout}, why);
    EXPECT_TRUE(found) << why;
    return found.value_or(admin::Tree());
  }

  /// The folder of an entry. Creates a missing folder.
  std::string folder(admin::Area area, const std::string& owner, const std::string& entry) const {
    const std::string path = admin::folder_for(tree(), area, owner, entry).path;
    make_folder(path);
    return path;
  }

  /// Stores a document through the library's index. @return the path of its file.
  std::string add(admin::Area area, const std::string& owner, const std::string& entry,
                  std::int32_t timestamp, const std::string& bytes = "content") const {
    const std::string place = folder(area, owner, entry);
    const std::string file = STGIndex::create(place, entry, timestamp);
    const std::string path = admin::sys::join(place, file);
    write_file(path, bytes);
    return path;
  }

  std::vector<admin::Finding> findings(admin::CheckOptions options = {}) const {
    std::vector<admin::Finding> all;
    m_summary = admin::check(tree(), options, [&](const admin::Finding& f) { all.push_back(f); });
    return all;
  }

  /// The sorted codes of all findings of a check.
  std::vector<std::string> codes(admin::Depth depth = admin::Depth::kFull) const {
    admin::CheckOptions options;
    options.depth = depth;
    std::vector<std::string> names;
    for (const admin::Finding& finding : findings(options))
      names.emplace_back(admin::kind_of(finding.code).name);
    std::sort(names.begin(), names.end());
    return names;
  }

  const admin::CheckSummary& summary() const { return m_summary; }

 private:
  scratch_folder m_root;
  mutable admin::CheckSummary m_summary;
};

/// The storage of this process's library. The first call creates it.
inline const admin::Tree& program_tree() {
  static const scratch_folder root;
  static const admin::Tree tree = [] {
    EXPECT_TRUE(vu_storage::initRootStorage(root.path(), true, false));
    std::string why;
    return admin::locate({system_form(root.path()), "", admin::Layout::kOwner}, why)
        .value_or(admin::Tree());
  }();
  return tree;
}

using Codes = std::vector<std::string>;
