#include <memory>
#include <string>

#include "lab/bench/bare.h"
#include "lab/bench/floor.h"
#include "lab/bench/literal.h"
#include "lab/bench/stage.h"
#include "stg_index.h"

namespace bench {
namespace {

constexpr auto kJournal = SqliteIndex::Journal::kRollback;

/// The other contenders are compared on the disk; all read from the system's cache.
constexpr bool has_all_contenders(Place place) { return place == Place::kDisk; }

using literal::Synchronize;

void set_switch(Synchronize synchronize) {
  STGIndex::setSynchronizeMode(synchronize == Synchronize::kOn);
}

/// Chooses the next entry to look up.
using Next = std::shared_ptr<Choice>;

Next choice(const Folder& folder) { return std::make_shared<Choice>(folder.entries()); }

void expect(bool answer, bool expected, const Folder& folder) {
  if (answer != expected) bare::broken("a wrong answer in", folder.path());
}

// ---- exists ------------------------------------------------------------------------------------

enum class Sought { kHit, kMiss };

/// A job that looks up the next entry. @p ask(logical, timestamp) returns whether it exists.
template <class Ask>
Job question(const Folder& folder, Sought sought, Ask ask) {
  return {[&folder, sought, ask, next = choice(folder)] {
            const std::size_t entry = next->next();
            const bool hit = sought == Sought::kHit;
            const long timestamp = folder.timestamp(entry) - (hit ? 0 : 1);
            expect(ask(folder.logical(entry), timestamp), hit, folder);
          },
          {}};
}

/// Looks up an entry in a database and checks that its file exists.
template <class Index>
bool ask_database(Index& index, const Folder& folder, const std::string& logical, long timestamp) {
  std::string stored;
  return index.find(logical, timestamp, stored) &&
         bare::entry_exists(folder.path() + "/" + stored + ".kdb");
}

Jobs exists_jobs(Stage& stage, Place place, std::size_t entries, Sought sought) {
  const Folder& folder = stage.folder(place, entries);
  const std::string path = folder.path();
  Jobs jobs;
  jobs[Who::kLibrary] =
      question(folder, sought, [path](const std::string& logical, long timestamp) {
        std::string physical;
        return STGIndex::exists(path, logical, timestamp, physical);
      });
  jobs[Who::kFloor] = question(folder, sought, [path](const std::string& logical, long timestamp) {
    std::string physical;
    return floor_of::exists(path, logical, timestamp, physical);
  });
  if (!has_all_contenders(place)) return jobs;
  const std::string sqlite = stage.sqlite(place, entries, Purpose::kAsked, kJournal);
  const std::string lmdb = stage.lmdb(place, entries, Purpose::kAsked);
  SqliteIndex& open_sqlite = stage.open_sqlite(place, entries, Purpose::kAsked);
  LmdbIndex& open_lmdb = stage.open_lmdb(place, entries, Purpose::kAsked);
  jobs[Who::kLiteral] =
      question(folder, sought, [path](const std::string& logical, long timestamp) {
        std::string physical;
        return literal::exists(path, logical, timestamp, physical);
      });
  jobs[Who::kSqlitePerOperation] =
      question(folder, sought, [sqlite, &folder](const std::string& logical, long timestamp) {
        SqliteIndex index(sqlite);
        return ask_database(index, folder, logical, timestamp);
      });
  jobs[Who::kLmdbPerOperation] =
      question(folder, sought, [lmdb, &folder](const std::string& logical, long timestamp) {
        LmdbIndex index(lmdb);
        return ask_database(index, folder, logical, timestamp);
      });
  jobs[Who::kSqliteKeptOpen] =
      question(folder, sought, [&open_sqlite, &folder](const std::string& logical, long timestamp) {
        return ask_database(open_sqlite, folder, logical, timestamp);
      });
  jobs[Who::kLmdbKeptOpen] =
      question(folder, sought, [&open_lmdb, &folder](const std::string& logical, long timestamp) {
        return ask_database(open_lmdb, folder, logical, timestamp);
      });
  return jobs;
}

Contest exists_contest(Stage& stage, Place place, std::size_t entries, Sought sought) {
  Contest contest = folder_contest(
      sought == Sought::kHit ? "exists, hit" : "exists, miss", place, entries,
      [&stage, place, entries, sought] { return exists_jobs(stage, place, entries, sought); });
  if (!has_all_contenders(place)) return contest;
  if (entries == 10000) contest.requirements.push_back(at_least_faster(200, Who::kLiteral));
  if (entries <= 10000) contest.requirements.push_back(at_most(1, Who::kSqlitePerOperation));
  return contest;
}

// ---- lists and latest versions -----------------------------------------------------------------

Job latest_job(const Folder& folder, std::function<long(const std::string&)> ask) {
  return {[&folder, ask = std::move(ask), next = choice(folder)] {
            const std::size_t entry = next->next();
            expect(ask(folder.logical(entry)) == folder.timestamp(entry), true, folder);
          },
          {}};
}

Jobs latest_jobs(Stage& stage, Place place, std::size_t entries, Synchronize synchronize) {
  set_switch(synchronize);
  const Folder& folder = stage.folder(place, entries);
  const std::string path = folder.path();
  Jobs jobs;
  jobs[Who::kLibrary] = latest_job(folder, [path](const std::string& logical) {
    long latest = 0;
    STGIndex::lastVersion(path, logical, latest);
    return latest;
  });
  const auto adoption =
      synchronize == Synchronize::kOn ? floor_of::Adoption::kOn : floor_of::Adoption::kOff;
  jobs[Who::kFloor] = latest_job(folder, [path, adoption](const std::string& logical) {
    long latest = 0;
    floor_of::last_version(path, logical, latest, adoption);
    return latest;
  });
  if (!has_all_contenders(place)) return jobs;
  const std::string sqlite = stage.sqlite(place, entries, Purpose::kAsked, kJournal);
  const std::string lmdb = stage.lmdb(place, entries, Purpose::kAsked);
  SqliteIndex& open_sqlite = stage.open_sqlite(place, entries, Purpose::kAsked);
  LmdbIndex& open_lmdb = stage.open_lmdb(place, entries, Purpose::kAsked);
  jobs[Who::kLiteral] = latest_job(folder, [path, synchronize](const std::string& logical) {
    long latest = 0;
    literal::last_version(path, logical, latest, synchronize);
    return latest;
  });
  jobs[Who::kSqlitePerOperation] = latest_job(
      folder, [sqlite](const std::string& logical) { return SqliteIndex(sqlite).latest(logical); });
  jobs[Who::kLmdbPerOperation] = latest_job(
      folder, [lmdb](const std::string& logical) { return LmdbIndex(lmdb).latest(logical); });
  jobs[Who::kSqliteKeptOpen] = latest_job(
      folder, [&open_sqlite](const std::string& logical) { return open_sqlite.latest(logical); });
  jobs[Who::kLmdbKeptOpen] = latest_job(
      folder, [&open_lmdb](const std::string& logical) { return open_lmdb.latest(logical); });
  return jobs;
}

using List = std::function<std::size_t()>;

Job list_job(const Folder& folder, List list) {
  return {[&folder, list = std::move(list)] { expect(list() == folder.entries(), true, folder); },
          {}};
}

constexpr const char* kDocumentExtensions = ".kda.kdb.kdc.kdd.kde.kdf.kdg";

Jobs list_jobs(Stage& stage, Place place, std::size_t entries, const List& library,
               const char* extensions, floor_of::List way) {
  set_switch(Synchronize::kOn);
  const Folder& folder = stage.folder(place, entries);
  const std::string path = folder.path();
  // Also lists the folder, because every contender must check which entries are valid.
  const auto by_database = [path](auto& index) {
    bare::NameMap out;
    bare::list(path);
    index.all([&](const std::string& logical, long, const std::string& stored) {
      out.emplace(stored + logical.substr(logical.rfind('.')), logical);
    });
    return out.size();
  };
  Jobs jobs;
  jobs[Who::kLibrary] = list_job(folder, library);
  jobs[Who::kFloor] = list_job(folder, [path, extensions, way] {
    bare::NameMap out;
    floor_of::list(path, out, extensions, way);
    return out.size();
  });
  if (way == floor_of::List::kByLogicalName) return jobs;
  if (!has_all_contenders(place)) return jobs;
  const std::string sqlite = stage.sqlite(place, entries, Purpose::kAsked, kJournal);
  const std::string lmdb = stage.lmdb(place, entries, Purpose::kAsked);
  SqliteIndex& open_sqlite = stage.open_sqlite(place, entries, Purpose::kAsked);
  LmdbIndex& open_lmdb = stage.open_lmdb(place, entries, Purpose::kAsked);
  jobs[Who::kLiteral] = list_job(folder, [path, extensions] {
    bare::NameMap out;
    literal::pl_values(path, out, extensions, Synchronize::kOn);
    return out.size();
  });
  jobs[Who::kSqlitePerOperation] = list_job(folder, [sqlite, by_database] {
    SqliteIndex index(sqlite);
    return by_database(index);
  });
  jobs[Who::kLmdbPerOperation] = list_job(folder, [lmdb, by_database] {
    LmdbIndex index(lmdb);
    return by_database(index);
  });
  jobs[Who::kSqliteKeptOpen] =
      list_job(folder, [&open_sqlite, by_database] { return by_database(open_sqlite); });
  jobs[Who::kLmdbKeptOpen] =
      list_job(folder, [&open_lmdb, by_database] { return by_database(open_lmdb); });
  return jobs;
}

void add_latest(std::vector<Contest>& contests, Stage& stage, Place place, std::size_t entries) {
  for (const Synchronize synchronize : {Synchronize::kOff, Synchronize::kOn}) {
    const bool on = synchronize == Synchronize::kOn;
    contests.push_back(folder_contest(on ? "lastVersion, switch on" : "lastVersion, switch off",
                                      place, entries, [&stage, place, entries, synchronize] {
                                        return latest_jobs(stage, place, entries, synchronize);
                                      }));
  }
}

using ListOperation = void (*)(const std::string& folder, STGIndex::NameMap& out);

void add_list(std::vector<Contest>& contests, Stage& stage, Place place, std::size_t entries,
              const char* workload, ListOperation operation, const char* extensions,
              floor_of::List way) {
  contests.push_back(folder_contest(workload, place, entries,
                                    [&stage, place, entries, operation, extensions, way] {
                                      const std::string path = stage.folder(place, entries).path();
                                      return list_jobs(
                                          stage, place, entries,
                                          [path, operation] {
                                            STGIndex::NameMap out;
                                            operation(path, out);
                                            return out.size();
                                          },
                                          extensions, way);
                                    }));
}

/// A folder without category files, like most folders.
Jobs category_jobs(Stage& stage, Place place, std::size_t entries) {
  set_switch(Synchronize::kOn);
  const Folder& folder = stage.folder(place, entries);
  Jobs jobs;
  jobs[Who::kLibrary].run = [&folder] {
    STGIndex::NameMap out;
    STGIndex::getCategories(folder.path(), out);
    expect(out.empty(), true, folder);
  };
  jobs[Who::kFloor].run = [&folder] {
    bare::NameMap out;
    floor_of::list(folder.path(), out, ".ctg", floor_of::List::kByLogicalName);
    expect(out.empty(), true, folder);
  };
  return jobs;
}

}  // namespace

std::vector<Contest> index_questions(Stage& stage) {
  std::vector<Contest> contests;
  constexpr auto kPhysical = floor_of::List::kByPhysicalName;
  constexpr auto kLogical = floor_of::List::kByLogicalName;
  for (const std::size_t entries : kSizes) {
    for (const Place place : {Place::kDisk, Place::kMemory}) {
      contests.push_back(exists_contest(stage, place, entries, Sought::kHit));
      contests.push_back(exists_contest(stage, place, entries, Sought::kMiss));
      add_latest(contests, stage, place, entries);
      add_list(contests, stage, place, entries, "plValues", &STGIndex::plValues, "", kPhysical);
      add_list(contests, stage, place, entries, "getVUDocs", &STGIndex::getVUDocs,
               kDocumentExtensions, kPhysical);
      add_list(contests, stage, place, entries, "lpValues", &STGIndex::lpValues, "", kLogical);
      contests.push_back(folder_contest("getCategories", place, entries, [&stage, place, entries] {
        return category_jobs(stage, place, entries);
      }));
    }
  }
  return contests;
}

}  // namespace bench
