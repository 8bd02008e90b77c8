#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

/// @file
/// A file system in memory, with what the library uses: names, bytes, times, the read-only mark.
namespace model {

using Names = std::vector<std::string>;

/// Folders keep this time. It is far from all other times.
constexpr std::int64_t kTimeOfFolders = 1500000000;

struct Node {
  bool is_folder = false;
  bool is_read_only = false;
  std::string bytes;
  /// Seconds. For a folder it only matters whether there is one.
  std::int64_t time = 0;
  /// Whether the current step wrote it. The end of the step sets its time.
  bool is_fresh = false;
  std::map<std::string, Node> names;  ///< of a folder
};

/// Paths are absolute, separated by "\" or "/", and below the root. Other paths do not exist.
class Tree {
 public:
  /// @param root the path of the folder that the tree represents.
  explicit Tree(std::string root) : m_root_path(std::move(root)) { m_root.is_folder = true; }

  const std::string& root_path() const { return m_root_path; }
  Node& root() { return m_root; }

  /// The names of a real folder in the system's order. Called only where the order matters.
  std::function<Names(const std::string& folder)> real_order;

  // ---- questions -------------------------------------------------------------------------------

  /// The file or folder at a path, or null. A path with a separator at its end is a folder's.
  Node* at(const std::string& path);
  /// Whether a search finds the path. The last name may be a pattern. A final separator is ignored.
  bool exists(const std::string& path);
  bool is_folder(const std::string& path);
  /// Seconds; 0 if the path does not exist.
  std::int64_t time(const std::string& path);
  std::size_t size(const std::string& path);
  /// The names in a folder, sorted.
  Names names(const std::string& path);
  /// The same in the system's order.
  Names names_in_order(const std::string& path);

  // ---- changes; each says whether it was done --------------------------------------------------

  /// Opens a file for writing, and creates it if it is missing. Null for a folder, a read-only
  /// file, or a missing parent folder.
  Node* open_to_write(const std::string& path);
  bool make_folder(const std::string& path);
  bool remove_folder(const std::string& path);
  bool remove_file(const std::string& path);
  bool rename(const std::string& from, const std::string& to);
  bool copy(const std::string& from, const std::string& to, bool replace);
  bool make_writable(const std::string& path);

 private:
  /// The folder and the last name of a path.
  struct Place {
    Node* folder = nullptr;
    std::string name;
    bool wants_folder = false;  ///< the path ends in a separator
  };
  Place place_of(const std::string& path);

  const std::string m_root_path;
  Node m_root;
};

/// Whether a pattern of "*" and "?" matches a name. ".*" at its end also matches nothing.
bool covers(const std::string& pattern, const std::string& name);

}  // namespace model
