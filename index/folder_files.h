#pragma once

#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
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

  /// Enters the valid lines of a text into the two maps, which are never overwritten. Entries of the
  /// listing that are found to be the file of a line are accounted for from then on.
  /// @return whether every line was entered.
  bool load(std::string_view text, std::map<std::string, std::string>& lp,
            std::map<std::string, std::string>& pl);

  /// Whether load() met the file of this entry: such a file is known to the index. The others may be.
  bool is_accounted_for(std::size_t entry) const { return m_accounted_for[entry]; }

 private:
  static constexpr std::size_t kNotListed = static_cast<std::size_t>(-1);

  /// The file of a line.
  struct Match {
    bool valid = false;
    std::size_t entry = kNotListed;  ///< where the listing shows it as it stands
    bool has_extension = false;      ///< under the stored name + extension
  };

  Match match(std::string_view key, std::string_view stored);
  bool runs_on_into_a_name(const index_format::Line& line);
  std::size_t listed(std::string_view name);
  bool probe_is_valid(std::string_view stored, std::string_view extension);

  const std::string& m_folder;
  bool m_listed = false;
  std::vector<os::Entry> m_entries;
  std::unordered_map<std::string_view, std::size_t> m_names;
  std::vector<bool> m_accounted_for;
  std::string m_buffer;

  /// The last answer about a line that runs on.
  struct RunningOn {
    std::size_t separator = std::string_view::npos;
    std::size_t extension_length = 0;
    bool valid = false;
  } m_last_running_on;
};
