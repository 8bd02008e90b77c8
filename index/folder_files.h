#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "index/entry_table.h"
#include "index/index_format.h"
#include "index/loaded_index.h"
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

  /// Whether a path leads to something: as vu_file::exists(), without its trace scope.
  bool probe(const std::string& path);

  /// Whether the folder holds the file of a line: the stored name, or that + the logical name's
  /// extension. A key too short to be one makes no valid line.
  bool is_valid(std::string_view key, std::string_view stored);

  /// Calls visit(line) for the valid ones of these lines, in their order.
  template <class Visit>
  void visit_valid(std::span<const IndexEntry> lines, Visit visit) {
    std::array<Match, kTogether> found;
    while (!lines.empty()) {
      const auto some = lines.first(std::min(lines.size(), kTogether));
      judge(some, found);
      for (std::size_t i = 0; i < some.size(); ++i) {
        if (found[i].valid) visit(some[i]);
      }
      lines = lines.subspan(some.size());
    }
  }

  /// Gathers the valid lines of an index text. Entries of the listing that are found to be the file of
  /// a line are accounted for from then on.
  void load(LoadedIndex& index);

  /// Whether each question was answered. False when the system failed to tell whether some line has a file,
  /// or whether a path leads to something (an I/O error, a connection that is gone): it then counts as
  /// missing, and a text made from these answers may lack lines that are valid.
  bool is_sure() const { return m_is_sure; }

  /// Whether load() met the file of this entry and no other line has it: such a file is known to the
  /// index. The others may be.
  bool is_accounted_for(std::size_t entry) const { return m_claims[entry] == Claim::kAccountedFor; }

 private:
  /// So many lines are looked up at once (see EntryTable).
  static constexpr std::size_t kTogether = 16;

  /// What load() knows about an entry of the listing.
  enum class Claim : std::uint8_t {
    kNone,
    kByAnother,  ///< it bears the stored name of a line for which that is not the logical name
    kAccountedFor,
  };

  /// The file of a line.
  struct Match {
    bool valid = false;
    std::size_t entry = EntryTable::kNone;  ///< where the listing shows it as it stands
    bool has_extension = false;             ///< under the stored name + extension
  };

  /// The files of up to kTogether lines.
  void judge(std::span<const IndexEntry> lines, std::array<Match, kTogether>& found);
  Match match(const IndexEntry& line, std::string_view candidate, std::uint64_t hash);
  void add(LoadedIndex& index, std::span<const index_format::Line> lines);
  void claim(const Match& found, const IndexEntry& line);
  bool runs_on_into_a_name(const index_format::Line& line);
  bool probe_is_valid(std::string_view stored, std::string_view extension);

  const std::string& m_folder;
  bool m_listed = false;
  bool m_is_sure = true;
  std::vector<os::Entry> m_entries;
  EntryTable m_names;
  std::vector<Claim> m_claims;
  bool m_has_dotted_stem =
      false;  // a stored name with a dot was found under stored name + extension
  std::string m_buffer;
  std::array<std::string, kTogether> m_candidates;

  /// The last answer about a line that runs on.
  struct RunningOn {
    std::size_t separator = std::string_view::npos;
    std::size_t extension_length = 0;
    bool valid = false;
  } m_last_running_on;
};
