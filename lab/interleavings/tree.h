#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

/// @file
/// The tree of a run: made once, looked at after each run, and put back for the next one.
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

class TreeOnDisk {
 public:
  /// @param root a folder without a trailing separator; it is made when it is missing.
  explicit TreeOnDisk(const std::string& root);

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

// ------------------------------------------------------------------------------------------------
// What a tree means, without the numbers that it happened to draw: two ends are equal when nobody
// can tell them apart by names and bytes.

/// What is so -> how. "user/anna: report.kdb_0000000000" -> the bytes of its document.
using Facts = std::map<std::string, std::string>;

/// The facts of a tree, each index read by the second reader. A line whose file is gone is none.
///
/// * "FOLDER: KEY" -> the bytes that the entry leads to;
/// * "FOLDER: loose .kdb BYTES" -> how many such files no line names;
/// * "FOLDER: below NAME/..." -> sub-part folders and their files;
/// * "FOLDER: two entries, one file" -> their keys;
/// * "FOLDER: index" -> "none", "whole", "of no bytes", or "interrupted";
/// * "FOLDER: the counter is behind" -> the number;
/// * "PATH" -> the bytes of any other file, "" for a folder.
Facts facts_of(const Tree& tree);

/// Names of files as an operation has answered them, told as what they stand for in a folder:
/// the key of the entry in the tree before the run, else in the one after it.
std::string without_numbers(const std::string& answer, const std::string& folder,
                            const Tree& before, const Tree& after);

/// A text with what cannot be printed made visible, and cut where it is long.
std::string shown(const std::string& text);

}  // namespace interleavings
