#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "index/entry_table.h"
#include "platform/os/os.h"

/// Whether a file is there, as far as the system tells.
enum class Presence : std::uint8_t {
  kThere,
  kMissing,
  kUnknown,  ///< the system failed to tell: an I/O error, a folder that may not be searched ...
};

/// What a folder holds: its names at one moment, from one listing, and answers about single names.
///
/// Ask for names by `find`; it takes the listing when the first question comes. A name that the
/// listing does not show as it stands is asked of the system by itself, since other names may lead
/// to a file too (another letter case or a short name on Windows, a pattern, a name with a
/// separator). So is a name of the listing that an existence test may not find. The answer is
/// always the one of an existence test.
///
/// Nothing is traced or thrown but for memory that runs out. One thread at a time.
class FolderFiles {
 public:
  static constexpr std::size_t kNone = EntryTable::kNone;

  /// Where a name was found.
  struct Found {
    Presence presence = Presence::kMissing;
    std::size_t entry = kNone;  ///< its place in the listing, where that shows it as it stands
  };

  explicit FolderFiles(std::string folder) : m_folder(std::move(folder)) {}
  /// With a listing that the caller has taken.
  FolderFiles(std::string folder, std::vector<os::Entry> entries);
  FolderFiles(const FolderFiles&) = delete;
  FolderFiles& operator=(const FolderFiles&) = delete;

  const std::string& folder() const { return m_folder; }

  /// The listing, in the system's order; empty when the folder cannot be listed.
  const std::vector<os::Entry>& entries();

  /// A name in the folder.
  Found find(std::string_view name);

  /// The same in three steps, for who looks several names up (see EntryTable).
  std::uint64_t ask(std::string_view name);
  void fetch(std::uint64_t hash) const { m_names.fetch(hash); }
  /// The place of the name in the listing, or kNone.
  std::size_t listed(std::string_view name, std::uint64_t hash) const;

  /// Asks the system alone. @p name a name in the folder.
  Presence probe(std::string_view name);

 private:
  bool may_be_missing(const os::Entry& entry) const;

  std::string m_folder;
  bool m_listed = false;
  std::vector<os::Entry> m_entries;
  EntryTable m_names;
  std::string m_path;
};

/// Asks the system whether a path leads to something: as vu_file::exists(), without its trace
/// scope.
Presence presence_of(const std::string& path);
