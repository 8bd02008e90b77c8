#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "lab/bench/databases.h"
#include "lab/bench/folder.h"
#include "lab/bench/harness.h"

namespace bench {

enum class Place { kDisk, kMemory };
const char* name(Place place);

/// Databases for lookups are separate from those that workloads change.
enum class Purpose { kAsked, kChanged };

/// The folders and databases of the workloads, by place and number of entries. Each is created at
/// its first use.
class Stage {
 public:
  /// @p disk and @p memory are folders for the trees. The constructor empties them, the destructor
  /// removes them. @p largest is the largest number of entries of a folder.
  Stage(std::string disk, std::string memory, std::size_t largest);
  ~Stage();
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;

  std::size_t largest() const { return m_largest; }
  /// A folder for the files of one workload.
  std::string room(Place place, const std::string& name);
  Folder& folder(Place place, std::size_t entries);
  /// Paths of databases with the entries of folder().
  std::string sqlite(Place place, std::size_t entries, Purpose purpose,
                     SqliteIndex::Journal journal);
  std::string lmdb(Place place, std::size_t entries, Purpose purpose);
  SqliteIndex& open_sqlite(Place place, std::size_t entries, Purpose purpose);
  LmdbIndex& open_lmdb(Place place, std::size_t entries, Purpose purpose);

 private:
  std::string database(Place place, std::size_t entries, Purpose purpose, const char* kind);

  using Key = std::pair<Place, std::size_t>;
  using Open = std::pair<Key, Purpose>;
  std::map<Place, std::string> m_roots;
  std::size_t m_largest;
  std::map<Key, std::unique_ptr<Folder>> m_folders;
  std::map<Open, std::unique_ptr<SqliteIndex>> m_sqlite;
  std::map<Open, std::unique_ptr<LmdbIndex>> m_lmdb;
};

/// The storage of this process, which is initialised once.
class StorageRoot {
 public:
  static const StorageRoot& of(Stage& stage);

  /// The folder of an area.
  std::string area(const std::string& name) const { return m_path + "/storage/" + name; }
  /// The hash bucket of a corporate document.
  std::string bucket(const std::string& owner, const std::string& logical) const;
  /// Makes @p folder the mail folder of @p owner through a symbolic link. @return the owner.
  std::string mailbox(const std::string& folder, const std::string& owner) const;

 private:
  explicit StorageRoot(std::string path);

  std::string m_path;
};

/// A contest on a folder with this number of entries: at most 1.3 times the floor.
Contest folder_contest(std::string workload, Place place, std::size_t entries,
                       std::function<Jobs()> prepare);

inline constexpr std::size_t kSizes[] = {100, 1000, 10000, 100000};

// The contests of each source file, small folders first.
std::vector<Contest> index_questions(Stage& stage);
std::vector<Contest> text_searches(Stage& stage);
std::vector<Contest> index_changes(Stage& stage);
std::vector<Contest> arrivals(Stage& stage);
std::vector<Contest> cleaning(Stage& stage);
std::vector<Contest> documents(Stage& stage);
std::vector<Contest> key_files(Stage& stage);
std::vector<Contest> copies(Stage& stage);

}  // namespace bench
