#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

/// @file
/// A file system in memory, as much of one as the library asks for: names, bytes, times, the
/// read-only mark.
namespace model {

using Names = std::vector<std::string>;

/// Nobody sets those; they are far from every other time.
constexpr std::int64_t kTimeOfFolders = 1500000000;

struct Node {
  bool is_folder = false;
  bool is_read_only = false;
  std::string bytes;
  /// Seconds; nobody asks for those of folders but whether there are any.
  std::int64_t time = 0;
  /// Written in the step that is under way: its time is set when the step is over.
  bool is_fresh = false;
  std::map<std::string, Node> names;  ///< of a folder
};

/// Paths are absolute, with "\" or "/" between names, and lie below the root. Every question about
/// a path elsewhere is answered as if nothing were there.
class Tree {
 public:
  /// @param root the folder's path, which this tree stands for.
  explicit Tree(std::string root) : m_root_path(std::move(root)) { m_root.is_folder = true; }

  const std::string& root_path() const { return m_root_path; }
  Node& root() { return m_root; }

  /// The names of a real folder in the system's order; asked for where the order decides something.
  std::function<Names(const std::string& folder)> real_order;

  // ---- questions -------------------------------------------------------------------------------

  /// The file or folder at a path; null when there is none. A separator at the end wants a folder.
  Node* at(const std::string& path);
  /// Whether a search finds it: the last name may be a pattern, and behind a separator at the end
  /// stands the entry of what is before it.
  bool exists(const std::string& path);
  bool is_folder(const std::string& path);
  /// Seconds; 0 when nothing is there.
  std::int64_t time(const std::string& path);
  std::size_t size(const std::string& path);
  /// Everything in a folder, by name.
  Names names(const std::string& path);
  /// The same in the system's order.
  Names names_in_order(const std::string& path);

  // ---- changes; each says whether it was done --------------------------------------------------

  /// Opens a file for writing: makes it when it is missing. Null for a folder, a read-only file, or
  /// a place that is none.
  Node* open_to_write(const std::string& path);
  bool make_folder(const std::string& path);
  bool remove_folder(const std::string& path);
  bool remove_file(const std::string& path);
  bool rename(const std::string& from, const std::string& to);
  bool copy(const std::string& from, const std::string& to, bool replace);
  bool make_writable(const std::string& path);

 private:
  /// The folder in which the path's last name stands, and that name.
  struct Place {
    Node* folder = nullptr;
    std::string name;
    bool wants_folder = false;  ///< a separator stood at the end
  };
  Place place_of(const std::string& path);

  const std::string m_root_path;
  Node m_root;
};

/// Whether a pattern of "*" and "?" covers a name; ".*" at its end also covers nothing.
bool covers(const std::string& pattern, const std::string& name);

}  // namespace model
