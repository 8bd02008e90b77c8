#pragma once

#include <map>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "index/index_format.h"
#include "platform/os/os.h"

/// What a folder holds at one moment, from one listing, and which lines of an index that makes valid.
///
/// The listing is taken when the first question is asked. A name that it does not show as it stands is
/// asked for by itself, since other names may lead to a file too (another letter case or a short name
/// on Windows, a pattern, a name with a separator): the answer is always the one that an existence test
/// gives.
class FolderFiles {
 public:
  /// @param folder must outlive this object.
  explicit FolderFiles(const std::string& folder) : m_folder(folder) {}
  FolderFiles(const FolderFiles&) = delete;
  FolderFiles& operator=(const FolderFiles&) = delete;

  /// The listing, in the system's order.
  const std::vector<os::Entry>& entries();

  /// Whether the folder holds the file of a line: the stored name, or that + the logical name's
  /// extension. A key too short to be one makes no valid line.
  bool is_valid(std::string_view key, std::string_view stored);

  /// The same for a line of a text, without looking at the rest of the text for every line that runs on.
  bool is_valid(const index_format::Line& line);

 private:
  bool holds(std::string_view name);
  bool probe_is_valid(std::string_view stored, std::string_view extension);

  const std::string& m_folder;
  bool m_listed = false;
  std::vector<os::Entry> m_entries;
  std::unordered_set<std::string_view> m_names;
  std::string m_buffer;

  /// The last answer about a line that runs on.
  struct RunningOn {
    std::size_t separator = std::string_view::npos;
    std::size_t extension_length = 0;
    bool valid = false;
  } m_last_running_on;
};

/// Enters the valid lines of a text into the two maps, which are never overwritten.
void load_lines(std::string_view text, FolderFiles& files, std::map<std::string, std::string>& lp,
                std::map<std::string, std::string>& pl);
