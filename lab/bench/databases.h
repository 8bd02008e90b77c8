#pragma once

#include <functional>
#include <memory>
#include <string>

struct sqlite3;
struct sqlite3_stmt;
struct MDB_env;

/// @file
/// The same index in a database: logical name and timestamp -> number of the file. The file stays a
/// file. Both are durable when a change returns: SQLite with a rollback journal and
/// synchronous=FULL where it is opened per operation (its defaults), with a write-ahead log and
/// synchronous=FULL where it is kept open; LMDB with its default flushes.
namespace bench {

/// Gets the logical name, the timestamp and the stored name of an entry.
using Visit = std::function<void(const std::string&, long, const std::string&)>;

class SqliteIndex {
 public:
  enum class Journal { kRollback, kWriteAhead };
  explicit SqliteIndex(const std::string& path, Journal journal = Journal::kRollback);
  ~SqliteIndex();
  SqliteIndex(const SqliteIndex&) = delete;
  SqliteIndex& operator=(const SqliteIndex&) = delete;

  /// Fills an empty database by one transaction; @p each calls its argument for every entry.
  void fill(const std::function<void(const Visit&)>& each);
  bool find(const std::string& logical, long timestamp, std::string& stored);
  /// Draws the next number and inserts, as one transaction. @return the stored name.
  std::string insert(const std::string& logical, long timestamp);
  void erase(const std::string& logical, long timestamp);
  /// The new entry gets a number of its own, the old one goes, in one transaction.
  std::string move(const std::string& logical, long timestamp, const std::string& new_logical);
  /// The latest timestamp of a name; -1 when there is none.
  long latest(const std::string& logical);
  void all(const Visit& visit);

 private:
  void execute(const char* statement);
  /// Prepared once for the connection.
  sqlite3_stmt* prepared(int which);

  sqlite3* m_database = nullptr;
  sqlite3_stmt* m_prepared[7] = {};
};

class LmdbIndex {
 public:
  explicit LmdbIndex(const std::string& path);
  ~LmdbIndex();
  LmdbIndex(const LmdbIndex&) = delete;
  LmdbIndex& operator=(const LmdbIndex&) = delete;

  void fill(const std::function<void(const Visit&)>& each);
  bool find(const std::string& logical, long timestamp, std::string& stored);
  std::string insert(const std::string& logical, long timestamp);
  void erase(const std::string& logical, long timestamp);
  long latest(const std::string& logical);
  void all(const Visit& visit);

 private:
  MDB_env* m_environment = nullptr;
  unsigned m_table = 0;
};

}  // namespace bench
