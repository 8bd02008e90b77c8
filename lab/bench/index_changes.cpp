#include <memory>
#include <string>

#include "lab/bench/bare.h"
#include "lab/bench/floor.h"
#include "lab/bench/literal.h"
#include "lab/bench/stage.h"
#include "stg_index.h"

namespace bench {
namespace {

using literal::Synchronize;

constexpr auto kJournal = SqliteIndex::Journal::kRollback;
constexpr long kNewTimestamp = 5;

/// A new name in the middle of the sorted names of the folder.
std::string new_name(const Folder& folder) {
  std::string result = folder.logical(folder.entries() / 2);
  return result.insert(result.rfind('.'), " new");
}

std::size_t changed_entry(const Folder& folder) { return folder.entries() / 2; }

struct Change {
  std::function<void()> restore;
  Synchronize synchronize;

  Job by_library(std::function<void()> run) const {
    return {[run = std::move(run), on = synchronize == Synchronize::kOn] {
              STGIndex::setSynchronizeMode(on);
              run();
            },
            restore};
  }
  Job by(std::function<void()> run) const { return {std::move(run), restore}; }
};

// ---- create ------------------------------------------------------------------------------------

Jobs create_jobs(Stage& stage, Place place, std::size_t entries, Synchronize synchronize) {
  const Folder& folder = stage.folder(place, entries);
  const std::string path = folder.path();
  const std::string logical = new_name(folder);
  const Change change{[&folder] { folder.restore({folder.next_file()}); }, synchronize};
  Jobs jobs;
  jobs[Who::kLibrary] =
      change.by_library([path, logical] { STGIndex::create(path, logical, kNewTimestamp); });
  jobs[Who::kFloor] =
      change.by([path, logical] { floor_of::create(path, logical, kNewTimestamp); });
  jobs[Who::kLiteral] = change.by(
      [path, logical, synchronize] { literal::create(path, logical, kNewTimestamp, synchronize); });

  const auto make_file = [path](const std::string& stored) {
    const bare::File file(path + "/" + stored + ".kdb", bare::File::Mode::kReadWriteCreate);
    file.flush();
  };
  const std::string sqlite = stage.sqlite(place, entries, Purpose::kChanged, kJournal);
  SqliteIndex& open = stage.open_sqlite(place, entries, Purpose::kChanged);
  LmdbIndex& open_lmdb = stage.open_lmdb(place, entries, Purpose::kChanged);
  const auto unmake = [path](auto& index, const std::string& name) {
    std::string stored;
    if (!index.find(name, kNewTimestamp, stored)) return;
    index.erase(name, kNewTimestamp);
    bare::remove_file(path + "/" + stored + ".kdb");
  };
  jobs[Who::kSqlitePerOperation] = {[sqlite, logical, make_file] {
                                      std::string stored;
                                      SqliteIndex index(sqlite);
                                      make_file(index.insert(logical, kNewTimestamp));
                                    },
                                    [sqlite, logical, unmake] {
                                      SqliteIndex index(sqlite);
                                      unmake(index, logical);
                                    }};
  jobs[Who::kSqliteKeptOpen] = {
      [&open, logical, make_file] { make_file(open.insert(logical, kNewTimestamp)); },
      [&open, logical, unmake] { unmake(open, logical); }};
  jobs[Who::kLmdbKeptOpen] = {
      [&open_lmdb, logical, make_file] { make_file(open_lmdb.insert(logical, kNewTimestamp)); },
      [&open_lmdb, logical, unmake] { unmake(open_lmdb, logical); }};
  const std::string lmdb = stage.lmdb(place, entries, Purpose::kChanged);
  jobs[Who::kLmdbPerOperation] = {
      [lmdb, logical, make_file] { make_file(LmdbIndex(lmdb).insert(logical, kNewTimestamp)); },
      [lmdb, logical, unmake] {
        LmdbIndex index(lmdb);
        unmake(index, logical);
      }};
  return jobs;
}

// ---- remove, rename, update --------------------------------------------------------------------

Jobs remove_jobs(Stage& stage, Place place, std::size_t entries) {
  const Folder& folder = stage.folder(place, entries);
  const std::string path = folder.path();
  const std::size_t entry = changed_entry(folder);
  const std::string logical = folder.logical(entry);
  const long timestamp = folder.timestamp(entry);
  const std::string file = folder.file(entry);
  const Change change{[&folder, file] { folder.restore({}, {file}); }, Synchronize::kOn};
  Jobs jobs;
  jobs[Who::kLibrary] =
      change.by_library([path, logical, timestamp] { STGIndex::remove(path, logical, timestamp); });
  jobs[Who::kFloor] =
      change.by([path, logical, timestamp] { floor_of::remove(path, logical, timestamp); });
  jobs[Who::kLiteral] = change.by(
      [path, logical, timestamp] { literal::remove(path, logical, timestamp, Synchronize::kOn); });
  const auto erase = [logical, timestamp, path, file](auto& index) {
    index.erase(logical, timestamp);
    bare::remove_file(path + "/" + file);
  };
  // The entry gets a new number each time, which does not matter here.
  const auto back = [&folder, logical, timestamp, file](auto& index) {
    std::string stored;
    if (!index.find(logical, timestamp, stored)) index.insert(logical, timestamp);
    folder.restore({}, {file});
  };
  const std::string sqlite = stage.sqlite(place, entries, Purpose::kChanged, kJournal);
  SqliteIndex& open = stage.open_sqlite(place, entries, Purpose::kChanged);
  LmdbIndex& open_lmdb = stage.open_lmdb(place, entries, Purpose::kChanged);
  jobs[Who::kSqlitePerOperation] = {[sqlite, erase] {
                                      SqliteIndex index(sqlite);
                                      erase(index);
                                    },
                                    [sqlite, back] {
                                      SqliteIndex index(sqlite);
                                      back(index);
                                    }};
  jobs[Who::kSqliteKeptOpen] = {[&open, erase] { erase(open); }, [&open, back] { back(open); }};
  jobs[Who::kLmdbKeptOpen] = {[&open_lmdb, erase] { erase(open_lmdb); },
                              [&open_lmdb, back] { back(open_lmdb); }};
  return jobs;
}

Jobs rename_jobs(Stage& stage, Place place, std::size_t entries) {
  const Folder& folder = stage.folder(place, entries);
  const std::string path = folder.path();
  const std::size_t entry = changed_entry(folder);
  const std::string logical = folder.logical(entry);
  const long timestamp = folder.timestamp(entry);
  const std::string renamed = new_name(folder);
  const Change change{
      [&folder, file = folder.file(entry)] { folder.restore({folder.next_file()}, {file}); },
      Synchronize::kOn};
  Jobs jobs;
  jobs[Who::kLibrary] = change.by_library([path, logical, timestamp, renamed] {
    STGIndex::rename(path, logical, timestamp, renamed, timestamp);
  });
  jobs[Who::kFloor] = change.by([path, logical, timestamp, renamed] {
    floor_of::rename(path, logical, timestamp, renamed, timestamp);
  });
  jobs[Who::kLiteral] = change.by([path, logical, timestamp, renamed] {
    literal::rename(path, logical, timestamp, renamed, timestamp, Synchronize::kOn);
  });
  return jobs;
}

Jobs update_jobs(Stage& stage, Place place, std::size_t entries) {
  const Folder& folder = stage.folder(place, entries);
  const std::string path = folder.path();
  const Change change{[&folder] { folder.restore({}); }, Synchronize::kOn};
  Jobs jobs;
  jobs[Who::kLibrary] = change.by_library([path] { STGIndex::updateIndexFile(path); });
  jobs[Who::kFloor] = change.by([path] { floor_of::update(path); });
  jobs[Who::kLiteral] = change.by([path] { literal::update(path, Synchronize::kOn); });
  return jobs;
}

Contest change_contest(const std::string& workload, Place place, std::size_t entries,
                       std::function<Jobs()> prepare) {
  Contest contest = folder_contest(workload, place, entries, std::move(prepare));
  if (entries == 10000) contest.requirements.push_back(at_least_faster(8, Who::kLiteral));
  return contest;
}

}  // namespace

std::vector<Contest> index_changes(Stage& stage) {
  std::vector<Contest> contests;
  for (const std::size_t entries : kSizes) {
    for (const Place place : {Place::kDisk, Place::kMemory}) {
      for (const Synchronize synchronize : {Synchronize::kOff, Synchronize::kOn}) {
        const bool on = synchronize == Synchronize::kOn;
        contests.push_back(change_contest(on ? "create, switch on" : "create, switch off", place,
                                          entries, [&stage, place, entries, synchronize] {
                                            return create_jobs(stage, place, entries, synchronize);
                                          }));
      }
      contests.push_back(change_contest("remove", place, entries, [&stage, place, entries] {
        return remove_jobs(stage, place, entries);
      }));
      contests.push_back(change_contest("rename", place, entries, [&stage, place, entries] {
        return rename_jobs(stage, place, entries);
      }));
      contests.push_back(
          change_contest("updateIndexFile", place, entries,
                         [&stage, place, entries] { return update_jobs(stage, place, entries); }));
    }
  }
  return contests;
}

}  // namespace bench
