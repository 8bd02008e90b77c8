#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "platform/os/os.h"
#include "stg_index.h"

/// Access to the entries of an index without a map of them.
struct IndexGate {
  using Visit =
      std::function<bool(std::string_view logical, long version, const std::string& file)>;

  /// Loads a folder's index like a query of STGIndex and releases its lock. Then calls @p visit for
  /// each entry, in the order of the keys, until @p visit returns false. There is no lock during
  /// these calls, so @p visit may use the library. If the load adopted files, a save follows.
  /// @return the failure if synchronisation is on, but the folder cannot be listed: then no orphan
  /// was adopted.
  /// @throws like STGIndex::plValues(), and any exception of @p visit.
  static os::Status visit(const std::string& folder, const Visit& visit);

  using VisitFile = std::function<void(std::string_view file, std::string_view logical)>;

  /// Visits the pairs of STGIndex::plValues() in the order of its map, without building it. The
  /// index is locked for reading. The views are valid during the call.
  /// @throws like STGIndex::plValues(), and any exception of @p visit.
  static void visit_files(const std::string& folder, const VisitFile& visit);

  /// The file of an entry, or nothing if the entry does not exist. Unlike STGIndex::exists(), it
  /// does not look for a file with the logical name. @throws like STGIndex::exists()
  static std::optional<std::string> file_of(const std::string& folder, const std::string& logical,
                                            long version);

  using Condition = std::function<bool(const std::string& file)>;

  /// Removes an entry like STGIndex::remove(), but only if @p is_wanted accepts its file. The index
  /// is locked during that call and the removal of the file: no other program can give the entry
  /// another file in between.
  /// @return false if the entry does not exist or is not wanted.
  /// @throws like STGIndex::remove(), and any exception of @p is_wanted.
  static bool remove_if(const std::string& folder, const std::string& logical, long version,
                        const Condition& is_wanted);

  /// Whether synchronisation is on.
  static bool adopts() { return STGIndex::synchronizes(); }
};
