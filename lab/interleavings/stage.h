#pragma once

#include <cstdint>
#include <map>
#include <string>

/// @file
/// The tree of a meeting: made once, looked at after each run, and put back for the next one.
namespace interleavings {

struct Item {
  std::string bytes;
  std::int64_t time = 0;  ///< of the last change; of a folder 0

  bool operator==(const Item&) const = default;
};

/// Path -> what is there; relative, with "/" between the parts. A folder's path ends in "/".
using Tree = std::map<std::string, Item>;

/// Adds a file, and the folders on the way to it.
void add_file(Tree& tree, const std::string& path, const std::string& bytes, std::int64_t time);
void add_folder(Tree& tree, const std::string& path);

class Stage {
 public:
  /// @param root a folder without a trailing separator; it is made when it is missing.
  explicit Stage(const std::string& root);

  const std::string& root() const { return m_root; }
  /// Makes the folder hold this and nothing else.
  void set(const Tree& tree);
  /// What it holds now.
  const Tree& look();

 private:
  void walk(const std::string& folder, Tree& tree) const;
  void remove(const std::string& path) const;
  void make(const std::string& path, const Item& item) const;
  std::string whole(const std::string& path) const { return m_root + "/" + path; }

  const std::string m_root;
  Tree m_now;
};

}  // namespace interleavings
