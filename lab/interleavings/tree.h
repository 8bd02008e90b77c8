#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

/// @file
/// The tree of a run. It is created once, compared after each run, and restored for the next one.
namespace interleavings {

struct Item {
  std::string bytes;
  std::int64_t time = 0;  ///< of the last change; 0 for a folder

  bool operator==(const Item&) const = default;
};

/// Path -> content. Paths are relative and separated by "/". The path of a folder ends in "/".
using Tree = std::map<std::string, Item>;

/// Adds a file and the folders of its path.
void add_file(Tree& tree, const std::string& path, const std::string& bytes, std::int64_t time);
void add_folder(Tree& tree, const std::string& path);

class TreeOnDisk {
 public:
  /// @param root a folder without a trailing separator; it is created if it is missing.
  explicit TreeOnDisk(const std::string& root);

  const std::string& root() const { return m_root; }
  /// Gives the folder exactly this content.
  void set(const Tree& tree);
  /// Reads the content of the folder.
  const Tree& look();

 private:
  void walk(const std::string& folder, Tree& tree) const;
  void remove(const std::string& path) const;
  void make(const std::string& path, const Item& item) const;
  std::string whole(const std::string& path) const { return m_root + "/" + path; }

  const std::string m_root;
  Tree m_now;
};

// ------------------------------------------------------------------------------------------------
// The meaning of a tree without drawn numbers: equal ends have the same names and bytes.

/// Fact -> value. Example: "user/anna: report.kdb_0000000000" -> the bytes of its document.
using Facts = std::map<std::string, std::string>;

/// The facts of a tree, from each index through the second reader. Dangling entries are left out.
///
/// * "FOLDER: KEY" -> the bytes of the entry's file
/// * "FOLDER: loose .kdb BYTES" -> the number of orphans with this extension and these bytes
/// * "FOLDER: below NAME/..." -> sub-part folders and their files
/// * "FOLDER: two entries, one file" -> their keys
/// * "FOLDER: index" -> "none", "whole", "empty" or "interrupted"
/// * "FOLDER: the counter is too low" -> its number
/// * "PATH" -> the bytes of any other file, "" for a folder
Facts facts_of(const Tree& tree);

/// Replaces each file name in a result by a key: of its entry before the run, or else after it.
std::string without_numbers(const std::string& answer, const std::string& folder,
                            const Tree& before, const Tree& after);

/// The text with escapes for characters that cannot be printed; a long text is shortened.
std::string shown(const std::string& text);

}  // namespace interleavings
