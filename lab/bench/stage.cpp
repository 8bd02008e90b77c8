#include "lab/bench/stage.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "lab/bench/bare.h"
#include "vu_storage.h"

namespace bench {

const char* name(Place place) { return place == Place::kDisk ? "disk" : "memory"; }

Stage::Stage(std::string disk, std::string memory, std::size_t largest)
    : m_roots{{Place::kDisk, std::move(disk)}, {Place::kMemory, std::move(memory)}},
      m_largest(largest) {
  for (const auto& [place, root] : m_roots) {
    std::filesystem::remove_all(root);
    std::filesystem::create_directories(root);
  }
}

Stage::~Stage() {
  m_folders.clear();
  m_sqlite.clear();
  m_lmdb.clear();
  std::error_code ignored;
  for (const auto& [place, root] : m_roots) std::filesystem::remove_all(root, ignored);
}

std::string Stage::room(Place place, const std::string& name) {
  const std::string path = m_roots.at(place) + "/" + name;
  std::filesystem::create_directories(path);
  return path;
}

Folder& Stage::folder(Place place, std::size_t entries) {
  std::unique_ptr<Folder>& folder = m_folders[{place, entries}];
  if (!folder)
    folder = std::make_unique<Folder>(m_roots.at(place) + "/" + std::to_string(entries), entries);
  return *folder;
}

namespace {

std::function<void(const Visit&)> entries_of(const Folder& folder) {
  return [&folder](const Visit& visit) {
    for (std::size_t i = 0; i < folder.entries(); ++i) {
      const std::string file = folder.file(i);
      visit(folder.logical(i), folder.timestamp(i), file.substr(0, file.rfind('.')));
    }
  };
}

}  // namespace

std::string Stage::database(Place place, std::size_t entries, Purpose purpose, const char* kind) {
  const char* const use = purpose == Purpose::kAsked ? "asked" : "changed";
  return room(place, "databases") + "/" + kind + "-" + use + std::to_string(entries);
}

std::string Stage::sqlite(Place place, std::size_t entries, Purpose purpose,
                          SqliteIndex::Journal journal) {
  const bool wal = journal == SqliteIndex::Journal::kWriteAhead;
  const std::string path = database(place, entries, purpose, wal ? "sqlite-wal" : "sqlite");
  if (!std::filesystem::exists(path))
    SqliteIndex(path, journal).fill(entries_of(folder(place, entries)));
  return path;
}

std::string Stage::lmdb(Place place, std::size_t entries, Purpose purpose) {
  const std::string path = database(place, entries, purpose, "lmdb");
  if (!std::filesystem::exists(path)) LmdbIndex(path).fill(entries_of(folder(place, entries)));
  return path;
}

SqliteIndex& Stage::open_sqlite(Place place, std::size_t entries, Purpose purpose) {
  std::unique_ptr<SqliteIndex>& index = m_sqlite[{{place, entries}, purpose}];
  constexpr auto kJournal = SqliteIndex::Journal::kWriteAhead;
  if (!index)
    index = std::make_unique<SqliteIndex>(sqlite(place, entries, purpose, kJournal), kJournal);
  return *index;
}

LmdbIndex& Stage::open_lmdb(Place place, std::size_t entries, Purpose purpose) {
  std::unique_ptr<LmdbIndex>& index = m_lmdb[{{place, entries}, purpose}];
  if (!index) {
    // A separate file, because a process may open an LMDB file only once at a time.
    const std::string path = database(place, entries, purpose, "lmdb-kept");
    index = std::make_unique<LmdbIndex>(path);
    index->fill(entries_of(folder(place, entries)));
  }
  return *index;
}

const StorageRoot& StorageRoot::of(Stage& stage) {
  static const StorageRoot root(stage.room(Place::kDisk, "root"));
  return root;
}

StorageRoot::StorageRoot(std::string path) : m_path(std::move(path)) {
  if (!vu_storage::initRootStorage(m_path, true, true)) bare::broken("no storage in", m_path);
}

std::string StorageRoot::bucket(const std::string& owner, const std::string& logical) const {
  std::string folder;
  vu_storage::createUserOrDomainNameDirectory(owner, logical, STG::CorporateRepository, folder,
                                              true);
  std::replace(folder.begin(), folder.end(), '\\', '/');
  return folder;
}

std::string StorageRoot::mailbox(const std::string& folder, const std::string& owner) const {
  const std::string link = area("mail") + "/" + owner;
  if (!std::filesystem::is_symlink(link)) std::filesystem::create_directory_symlink(folder, link);
  return owner;
}

Contest folder_contest(std::string workload, Place place, std::size_t entries,
                       std::function<Jobs()> prepare) {
  Contest contest;
  contest.workload = std::move(workload);
  contest.place = name(place);
  contest.size = std::to_string(entries) + " entries";
  contest.entries = entries;
  contest.requirements = {at_most(1.3, Who::kFloor)};
  contest.prepare = std::move(prepare);
  return contest;
}

}  // namespace bench
