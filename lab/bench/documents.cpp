#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "lab/bench/bare.h"
#include "lab/bench/floor.h"
#include "lab/bench/literal.h"
#include "lab/bench/stage.h"
#include "stg_index.h"
#include "vu_storage.h"

namespace bench {
namespace {

using literal::Synchronize;

constexpr auto kJournal = SqliteIndex::Journal::kRollback;

std::string size_text(std::size_t bytes) {
  return bytes >= (std::size_t{1} << 20U) ? std::to_string(bytes >> 20U) + " MB"
                                          : std::to_string(bytes >> 10U) + " KB";
}

// ---- reading -----------------------------------------------------------------------------------

/// A document in a folder that the hash bucket of its owner leads to.
struct Bucket {
  Bucket(Stage& stage, Place place, std::size_t entries, std::size_t bytes)
      : owner("reader-" + std::string(name(place)) + std::to_string(entries) + "-" +
              std::to_string(bytes)),
        folder(stage.room(place, "documents") + "/" + owner, entries, ".kdf"),
        asked(entries / 2) {
    const StorageRoot& root = StorageRoot::of(stage);
    put_file(folder.path(folder.file(asked)), std::string(bytes, 'd'));
    area = root.area("docs");
    path = root.bucket(owner, logical());
    std::filesystem::remove(path);
    std::filesystem::create_directory_symlink(folder.path(), path);
  }
  ~Bucket() { std::filesystem::remove(path); }
  Bucket(const Bucket&) = delete;
  Bucket& operator=(const Bucket&) = delete;

  std::string logical() const { return folder.logical(asked); }
  long timestamp() const { return folder.timestamp(asked); }
  std::string file(const std::string& physical) const { return path + "/" + physical; }

  std::string owner;
  Folder folder;
  std::size_t asked;
  std::string area;
  std::string path;
};

/// Databases with the entries of a bucket's folder.
struct BucketDatabases {
  BucketDatabases(Stage& stage, const Bucket& bucket) {
    const auto fill = [&folder = bucket.folder](const Visit& visit) {
      for (std::size_t i = 0; i < folder.entries(); ++i) {
        const std::string file = folder.file(i);
        visit(folder.logical(i), folder.timestamp(i), file.substr(0, file.rfind('.')));
      }
    };
    sqlite = stage.room(Place::kDisk, "databases") + "/" + bucket.owner;
    SqliteIndex(sqlite).fill(fill);
    lmdb = sqlite + "-lmdb";
    LmdbIndex(lmdb).fill(fill);
    sqlite_open = std::make_unique<SqliteIndex>(sqlite);
    lmdb_open = std::make_unique<LmdbIndex>(lmdb + "-kept");
    lmdb_open->fill(fill);
  }

  std::string sqlite;
  std::string lmdb;
  std::unique_ptr<SqliteIndex> sqlite_open;
  std::unique_ptr<LmdbIndex> lmdb_open;
};

/// @param with_others whether the literal way and the databases take part.
Jobs read_jobs(Stage& stage, Place place, std::size_t entries, std::size_t bytes,
               bool with_others) {
  const auto bucket = std::make_shared<Bucket>(stage, place, entries, bytes);
  const auto document = std::make_shared<std::string>();
  const auto expect_all = [document, bytes] {
    if (document->size() != bytes) bare::broken("a wrong read", "of a document");
  };
  Jobs jobs;
  jobs[Who::kLibrary].run = [bucket, document, expect_all] {
    vu_storage storage;
    vu_file file;
    storage.OpenRead(file, bucket->owner, bucket->logical(), STG::CorporateRepository,
                     bucket->timestamp());
    storage.Read(file, *document, 0);
    storage.Close(file);
    expect_all();
  };
  jobs[Who::kFloor].run = [bucket, document, expect_all] {
    std::string physical;
    const std::string& area = bucket->area;
    if (!bare::entry_exists(area) || !bare::entry_exists(area + "/" + bucket->owner) ||
        !bare::entry_exists(bucket->path))
      bare::broken("no folder", area);
    floor_of::exists(bucket->path, bucket->logical(), bucket->timestamp(), physical);
    // The library compares the document's time with the requested timestamp.
    if (bare::modify_time(bucket->file(physical)) == 0) bare::broken("no time of", physical);
    floor_of::read_document(bucket->file(physical), *document);
    expect_all();
  };
  if (!with_others) return jobs;

  jobs[Who::kLiteral].run = [bucket, document, expect_all] {
    std::string physical;
    literal::exists(bucket->path, bucket->logical(), bucket->timestamp(), physical);
    vu_file file;
    file.open(bucket->path, physical, vu_file::o_read);
    file.read(*document, 0);
    file.close();
    expect_all();
  };
  const auto databases = std::make_shared<BucketDatabases>(stage, *bucket);
  const auto read_by = [bucket, document, expect_all](auto& index) {
    std::string stored;
    index.find(bucket->logical(), bucket->timestamp(), stored);
    floor_of::read_document(bucket->file(stored + ".kdf"), *document);
    expect_all();
  };
  jobs[Who::kSqlitePerOperation].run = [databases, read_by] {
    SqliteIndex index(databases->sqlite);
    read_by(index);
  };
  jobs[Who::kSqliteKeptOpen].run = [databases, read_by] { read_by(*databases->sqlite_open); };
  jobs[Who::kLmdbPerOperation].run = [databases, read_by] {
    LmdbIndex index(databases->lmdb);
    read_by(index);
  };
  jobs[Who::kLmdbKeptOpen].run = [databases, read_by] { read_by(*databases->lmdb_open); };
  return jobs;
}

// ---- writing -----------------------------------------------------------------------------------

constexpr long kNewTimestamp = 5;

struct Mailbox {
  Mailbox(Stage& stage, Place place, std::size_t entries)
      : folder(stage.folder(place, entries)),
        owner(StorageRoot::of(stage).mailbox(folder.path(), name(place) + std::to_string(entries))),
        path(StorageRoot::of(stage).area("mail") + "/" + owner),
        logical(folder.logical(entries / 2)) {
    logical.insert(logical.rfind('.'), " new");
  }
  const Folder& folder;
  std::string owner;
  std::string path;
  std::string logical;
};

/// Checks that the folders of a mailbox exist.
void ask_for_folders(const Mailbox& box, const std::string& area) {
  if (!bare::entry_exists(area) || !bare::entry_exists(box.path))
    bare::broken("no mailbox", box.path);
}

Jobs write_jobs(Stage& stage, Place place, std::size_t entries, std::size_t bytes,
                Synchronize synchronize) {
  const auto box = std::make_shared<Mailbox>(stage, place, entries);
  const auto document = std::make_shared<std::string>(bytes, 'd');
  const std::string area = StorageRoot::of(stage).area("mail");
  const auto restore = [box] { box->folder.restore({box->folder.next_file()}); };
  Jobs jobs;
  jobs[Who::kLibrary] = {[box, document, on = synchronize == Synchronize::kOn] {
                           STGIndex::setSynchronizeMode(on);
                           vu_storage storage;
                           vu_file file;
                           storage.OpenWrite(file, box->owner, box->logical, STG::MailRepository,
                                             true, kNewTimestamp);
                           storage.Write(file, *document);
                           storage.Close(file);
                         },
                         restore};
  jobs[Who::kFloor] = {[box, document, area] {
                         ask_for_folders(*box, area);
                         const std::string name =
                             floor_of::create(box->path, box->logical, kNewTimestamp);
                         floor_of::write_document(box->path + "/" + name, *document);
                       },
                       restore};
  jobs[Who::kLiteral] = {[box, document, synchronize] {
                           const std::string name =
                               literal::create(box->path, box->logical, kNewTimestamp, synchronize);
                           vu_file file;
                           file.open(box->path, name, vu_file::o_truncate);
                           file.write(*document);
                           file.close();
                         },
                         restore};

  const auto write = [box, document](auto& index) {
    const std::string name = index.insert(box->logical, kNewTimestamp) + ".kdb";
    floor_of::write_document(box->folder.path(name), *document);
  };
  const auto unmake = [box](auto& index) {
    std::string stored;
    if (!index.find(box->logical, kNewTimestamp, stored)) return;
    index.erase(box->logical, kNewTimestamp);
    bare::remove_file(box->folder.path(stored + ".kdb"));
  };
  const std::string sqlite = stage.sqlite(place, entries, Purpose::kChanged, kJournal);
  const std::string lmdb = stage.lmdb(place, entries, Purpose::kChanged);
  SqliteIndex& sqlite_open = stage.open_sqlite(place, entries, Purpose::kChanged);
  LmdbIndex& lmdb_open = stage.open_lmdb(place, entries, Purpose::kChanged);
  const auto per_operation = [](auto work, const std::string& path, auto* kind) {
    return [work, path, kind] {
      static_cast<void>(kind);
      std::remove_pointer_t<decltype(kind)> index(path);
      work(index);
    };
  };
  SqliteIndex* const by_sqlite = nullptr;
  LmdbIndex* const by_lmdb = nullptr;
  jobs[Who::kSqlitePerOperation] = {per_operation(write, sqlite, by_sqlite),
                                    per_operation(unmake, sqlite, by_sqlite)};
  jobs[Who::kLmdbPerOperation] = {per_operation(write, lmdb, by_lmdb),
                                  per_operation(unmake, lmdb, by_lmdb)};
  jobs[Who::kSqliteKeptOpen] = {[&sqlite_open, write] { write(sqlite_open); },
                                [&sqlite_open, unmake] { unmake(sqlite_open); }};
  jobs[Who::kLmdbKeptOpen] = {[&lmdb_open, write] { write(lmdb_open); },
                              [&lmdb_open, unmake] { unmake(lmdb_open); }};
  return jobs;
}

/// Replaces an existing mail document by one of the same size.
Jobs replace_jobs(Stage& stage, Place place, std::size_t entries) {
  const auto box = std::make_shared<Mailbox>(stage, place, entries);
  // Other workloads rename another entry, whose file must remain empty.
  const std::size_t entry = entries / 3;
  const std::string logical = box->folder.logical(entry);
  const long timestamp = box->folder.timestamp(entry);
  const std::string document(4096, 'd');
  const std::string area = StorageRoot::of(stage).area("mail");
  Jobs jobs;
  jobs[Who::kLibrary].run = [box, logical, timestamp, document] {
    vu_storage storage;
    vu_file file;
    storage.OpenWrite(file, box->owner, logical, STG::MailRepository, true, timestamp);
    storage.Write(file, document);
    storage.Close(file);
  };
  jobs[Who::kFloor].run = [box, logical, timestamp, document, area] {
    ask_for_folders(*box, area);
    std::string physical;
    floor_of::exists(box->path, logical, timestamp, physical);
    floor_of::write_document(box->path + "/" + physical, document);
  };
  return jobs;
}

/// Removes an entry in the middle with its file; the folder has no category files.
Jobs remove_file_jobs(Stage& stage, Place place, std::size_t entries, Synchronize synchronize) {
  const auto box = std::make_shared<Mailbox>(stage, place, entries);
  const std::size_t entry = entries / 2;
  const std::string logical = box->folder.logical(entry);
  const long timestamp = box->folder.timestamp(entry);
  const std::string area = StorageRoot::of(stage).area("mail");
  const bool on = synchronize == Synchronize::kOn;
  const auto restore = [box, entry] { box->folder.restore({}, {box->folder.file(entry)}); };
  Jobs jobs;
  jobs[Who::kLibrary] = {[box, logical, timestamp, on] {
                           STGIndex::setSynchronizeMode(on);
                           vu_storage::RemoveFile(box->owner, logical, STG::MailRepository,
                                                  timestamp);
                         },
                         restore};
  jobs[Who::kFloor] = {[box, logical, timestamp, area, on] {
                         ask_for_folders(*box, area);
                         floor_of::remove(box->path, logical, timestamp);
                         const auto adoption =
                             on ? floor_of::Adoption::kOn : floor_of::Adoption::kOff;
                         if (floor_of::has_categories(box->path, adoption))
                           bare::broken("a category file in", box->path);
                       },
                       restore};
  return jobs;
}

Contest write_contest(Stage& stage, Place place, std::size_t entries, std::size_t bytes,
                      Synchronize synchronize) {
  const bool on = synchronize == Synchronize::kOn;
  Contest contest =
      folder_contest(std::string("OpenWrite + Write + Close, new, switch ") + (on ? "on" : "off"),
                     place, entries, [&stage, place, entries, bytes, synchronize] {
                       return write_jobs(stage, place, entries, bytes, synchronize);
                     });
  contest.size += ", " + size_text(bytes);
  if (entries == 10000) contest.requirements.push_back(at_least_faster(8, Who::kLiteral));
  if (entries == 100 && place == Place::kDisk)
    contest.requirements.push_back(at_most(1, Who::kSqlitePerOperation));
  return contest;
}

// ---- lists -------------------------------------------------------------------------------------

enum class Wanted { kAll, kHalf };

Jobs file_list_jobs(Stage& stage, Place place, std::size_t entries, Wanted wanted) {
  static_cast<void>(StorageRoot::of(stage));
  STGIndex::setSynchronizeMode(true);
  const Folder& folder = stage.folder(place, entries);
  const std::string path = folder.path();
  const auto names = std::make_shared<std::vector<std::string>>();
  for (std::size_t i = 0; i < entries; i += 2) names->push_back(folder.logical(i));
  const std::vector<std::string>* const kept = wanted == Wanted::kAll ? nullptr : names.get();
  const auto expect_all = [names, count = kept == nullptr ? entries : names->size()](
                              const std::vector<std::string>& found) {
    if (found.size() != count) bare::broken("a wrong list", "of files");
  };
  Jobs jobs;
  jobs[Who::kLibrary].run = [path, kept, expect_all] {
    std::vector<std::string> physical;
    expect_all(vu_storage::getFileListFromIndexFile(path, physical, kept));
  };
  jobs[Who::kFloor].run = [path, kept, expect_all] {
    if (!bare::is_folder(path)) bare::broken("no folder", path);
    std::vector<std::string> logical;
    std::vector<std::string> physical;
    floor_of::file_list(path, kept, logical, physical);
    expect_all(logical);
  };
  if (place == Place::kMemory || wanted == Wanted::kHalf) return jobs;
  jobs[Who::kLiteral].run = [path, expect_all] {
    literal::NameMap out;
    literal::pl_values(path, out, "", Synchronize::kOn);
    std::vector<std::string> physical;
    std::vector<std::string> logical;
    for (const auto& [file, name] : out) {
      physical.push_back(file);
      logical.push_back(name);
    }
    expect_all(logical);
  };
  return jobs;
}

}  // namespace

std::vector<Contest> documents(Stage& stage) {
  std::vector<Contest> contests;
  constexpr std::size_t kDocuments[] = {4096, 65536, std::size_t{4} << 20U};
  for (const std::size_t entries : kSizes) {
    for (const Place place : {Place::kDisk, Place::kMemory}) {
      for (const std::size_t bytes : kDocuments) {
        // The size of the document matters only with a small index.
        const bool is_small = place == Place::kDisk && entries == kSizes[0];
        if (bytes != kDocuments[0] && !is_small) continue;
        Contest contest = folder_contest("OpenRead + Read + Close", place, entries,
                                         [&stage, place, entries, bytes, is_small] {
                                           return read_jobs(stage, place, entries, bytes, is_small);
                                         });
        contest.size += ", " + size_text(bytes);
        contests.push_back(std::move(contest));
      }
      contests.push_back(
          folder_contest("OpenWrite + Write + Close, replacing", place, entries,
                         [&stage, place, entries] { return replace_jobs(stage, place, entries); }));
      for (const Synchronize synchronize : {Synchronize::kOff, Synchronize::kOn}) {
        const bool on = synchronize == Synchronize::kOn;
        contests.push_back(folder_contest(on ? "RemoveFile, switch on" : "RemoveFile, switch off",
                                          place, entries, [&stage, place, entries, synchronize] {
                                            return remove_file_jobs(stage, place, entries,
                                                                    synchronize);
                                          }));
      }
      for (const Synchronize synchronize : {Synchronize::kOff, Synchronize::kOn}) {
        for (const std::size_t bytes : kDocuments) {
          // The size of the document matters only with a small index.
          if (bytes != kDocuments[0] && (entries != 100 || synchronize == Synchronize::kOn))
            continue;
          contests.push_back(write_contest(stage, place, entries, bytes, synchronize));
        }
      }
    }
    for (const Place place : {Place::kDisk, Place::kMemory}) {
      for (const Wanted wanted : {Wanted::kAll, Wanted::kHalf}) {
        contests.push_back(folder_contest(wanted == Wanted::kAll
                                              ? "getFileListFromIndexFile"
                                              : "getFileListFromIndexFile, half of the names",
                                          place, entries, [&stage, place, entries, wanted] {
                                            return file_list_jobs(stage, place, entries, wanted);
                                          }));
      }
    }
  }
  return contests;
}

}  // namespace bench
