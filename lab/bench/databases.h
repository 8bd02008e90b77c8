#pragma once

#include <functional>
#include <memory>
#include <string>

struct sqlite3;
struct sqlite3_stmt;
struct MDB_env;

/// @file
/// The same index in a database: logical name and timestamp -> number of the file. The documents
/// remain files. A change is durable when it returns:
///   SQLite, opened per operation   rollback journal, synchronous=FULL (the defaults)
///   SQLite, kept open              write-ahead log, synchronous=FULL
///   LMDB                           default flushes
namespace bench {

/// Is called with the logical name, the timestamp and the physical name of an entry.
using Visit = std::function<void(const std::string&, long, const std::string&)>;

class SqliteIndex {
 public:
  enum class Journal { kRollback, kWriteAhead };
  explicit SqliteIndex(const std::string& path, Journal journal = Journal::kRollback);
  ~SqliteIndex();
  SqliteIndex(const SqliteIndex&) = delete;
  SqliteIndex& operator=(const SqliteIndex&) = delete;

  /// Fills an empty database in one transaction; @p each calls its argument for each entry.
  void fill(const std::function<void(const Visit&)>& each);
  bool find(const std::string& logical, long timestamp, std::string& stored);
  /// Takes the next number and inserts the entry, in one transaction. @return the physical name.
  std::string insert(const std::string& logical, long timestamp);
  void erase(const std::string& logical, long timestamp);
  /// Inserts the new entry with a new number and erases the old one, in one transaction.
  std::string move(const std::string& logical, long timestamp, const std::string& new_logical);
  /// The latest timestamp of a name; -1 when there is none.
  long latest(const std::string& logical);
  void all(const Visit& visit);

 private:
  void execute(const char* statement);
  /// Statements, each prepared once for the connection.
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
