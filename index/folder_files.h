#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

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
/// Order of calls: find() for a name, as often as one likes; the first question takes the listing.
/// Who looks several names up at once calls ask() for all of them, then fetch(), then listed(), and
/// probe() for those that the listing does not show. To see the folder as it is by now, make
/// another object.
///
/// A name that the listing does not show as it stands is asked of the system by itself, since other
/// names may lead to a file too (another letter case or a short name on Windows, a pattern, a name
/// with a separator). So is a name of the listing that an existence test may not find. The answer
/// is always the one of an existence test.
///
/// Errors: what the system fails to tell is Presence::kUnknown. A folder that cannot be listed has
/// no entries, and each name is asked for by itself. Nothing is traced, and nothing thrown but for
/// want of memory.
///
/// Threads: one at a time, questions included.
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
  FolderFiles(std::string folder, os::Listing entries);
  FolderFiles(const FolderFiles&) = delete;
  FolderFiles& operator=(const FolderFiles&) = delete;

  const std::string& folder() const { return m_folder; }

  /// The listing, in the system's order; empty when the folder cannot be listed.
  const os::Listing& entries();

  /// A name in the folder.
  Found find(std::string_view name);

  /// The same in three steps, for who looks several names up (see EntryTable).
  std::uint64_t ask(std::string_view name) {
    if (!m_listed) entries();
    return m_names.ask(name);
  }
  void fetch(std::uint64_t hash) const { m_names.fetch(hash); }
  /// The place of the name in the listing, or kNone.
  [[gnu::always_inline]] std::size_t listed(std::string_view name, std::uint64_t hash) const {
    const std::size_t entry = m_names.find(name, hash);
    return m_are_sure || entry == kNone || !may_be_missing(m_entries[entry]) ? entry : kNone;
  }

  /// Asks the system alone. @p name a name in the folder.
  Presence probe(std::string_view name);

 private:
  void take(os::Listing entries);
  bool may_be_missing(os::Entry entry) const;

  std::string m_folder;
  bool m_listed = false;
  os::Listing m_entries;
  EntryTable m_names;
  bool m_are_sure = false;  ///< an existence test finds all of them
  std::string m_path;
};

/// Asks the system whether a path leads to something: as vu_file::exists(), without its trace
/// scope.
Presence presence_of(const std::string& path);
