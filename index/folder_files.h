#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "index/name_index.h"
#include "platform/os/os.h"

/// Whether a file exists, as far as the system can tell.
enum class Presence : std::uint8_t {
  kThere,
  kMissing,
  kUnknown,  ///< the system could not check: an I/O error, a folder that may not be searched ...
};

/// The files of a folder: one listing of its names, and checks of single names.
///
/// Order of calls: find() for each name; the first query reads the listing. To look up several
/// names at once, call ask() for all of them, then fetch(), then listed(). Call probe() for the
/// names that are not listed. The listing never changes; construct another object for a new one.
///
/// The result is always that of an existence test. A name that the listing shows exactly as given
/// exists. Any other name is checked by itself, because it may lead to a file in another way.
/// Examples: another letter case or a short name on Windows, a pattern, a name with a separator. A
/// listed name such as `a*`, which an existence test may not find, is also checked by itself.
///
/// Errors: a file that the system cannot check is Presence::kUnknown. A folder that cannot be
/// listed has no files, and each name is checked by itself. Nothing is traced. The only exception
/// is std::bad_alloc.
///
/// Threads: one at a time, also for queries.
class FolderFiles {
 public:
  static constexpr std::size_t kNone = NameIndex::kNone;

  explicit FolderFiles(std::string folder) : m_folder(std::move(folder)) {}
  /// Uses a listing that the caller has read.
  FolderFiles(std::string folder, os::Listing listing);
  FolderFiles(const FolderFiles&) = delete;
  FolderFiles& operator=(const FolderFiles&) = delete;

  const std::string& folder() const { return m_folder; }

  /// The listing, in the system's order; empty if the folder cannot be listed.
  const os::Listing& listing();

  /// The failure if the folder exists, but cannot be listed. Then its orphans are not seen.
  os::Status why_not_listed();

  /// The name at a position that a look-up returned. Valid as long as the object.
  std::string_view name_of(std::size_t file) const { return m_listing[file].name; }

  /// Looks up a name of the folder.
  Presence find(std::string_view name);

  /// The same in three steps, to look up several names at once (see NameIndex).
  std::uint64_t ask(std::string_view name) {
    if (!m_names) listing();
    return m_names->ask(name);
  }
  /// Before the first ask() it does nothing.
  void fetch(std::uint64_t hash) const {
    if (m_names) m_names->fetch(hash, name_at());
  }
  /// The position of the name in the listing, or kNone.
  [[gnu::always_inline]] std::size_t listed(std::string_view name, std::uint64_t hash) const {
    const std::size_t file = m_names->find(name, hash, name_at());
    return m_are_sure || file == kNone || !may_be_missing(m_listing[file]) ? file : kNone;
  }

  /// The position of the name in the listing as it is spelled, or kNone. Unlike listed(), it does
  /// not ask whether an existence test would find it.
  std::size_t spelled(std::string_view name) {
    const std::uint64_t hash = ask(name);
    return m_names->find(name, hash, name_at());
  }

  /// Checks a name of the folder without the listing.
  Presence probe(std::string_view name);

 private:
  void take(os::Listing listing);
  struct NameAt {
    const os::Listing& listing;
    std::string_view operator()(std::size_t file) const { return listing[file].name; }
  };
  NameAt name_at() const { return {m_listing}; }
  bool may_be_missing(os::Entry listed) const;

  std::string m_folder;
  os::Listing m_listing;
  os::Status m_listed;               ///< the result of listing the folder
  std::optional<NameIndex> m_names;  ///< of m_listing; nothing before the listing
  bool m_are_sure = false;           ///< an existence test finds all listed names
  std::string m_path;
};

/// A set of positions in a listing. FolderFiles::kNone represents all files that are not listed.
class FileSet {
 public:
  bool empty() const { return m_is_empty; }
  bool contains(std::size_t file) const {
    return file == FolderFiles::kNone ? m_has_none : file < m_has.size() && m_has[file];
  }
  void insert(std::size_t file) {
    m_is_empty = false;
    if (file == FolderFiles::kNone) {
      m_has_none = true;
      return;
    }
    if (file >= m_has.size()) m_has.resize(file + 1);
    m_has[file] = true;
  }

 private:
  std::vector<bool> m_has;
  bool m_has_none = false;
  bool m_is_empty = true;
};

/// Checks whether a path exists, like vu_file::exists() but without its trace scope.
Presence presence_of(const std::string& path);
