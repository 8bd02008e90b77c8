#include "lab/bench/databases.h"

#include <lmdb.h>
#include <sqlite3.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "lab/bench/bare.h"
#include "lab/bench/folder.h"

namespace bench {
namespace {

// ---- SQLite ------------------------------------------------------------------------------------

constexpr const char* kStatements[] = {
    "SELECT stored FROM entries WHERE logical = ?1 AND stamp = ?2",
    "UPDATE counter SET last = last + 1 RETURNING last",
    "INSERT INTO entries (logical, stamp, stored) VALUES (?1, ?2, ?3)",
    "DELETE FROM entries WHERE logical = ?1 AND stamp = ?2",
    "SELECT coalesce(max(stamp), -1) FROM entries WHERE logical = ?1",
    "SELECT logical, stamp, stored FROM entries",
    "UPDATE counter SET last = ?1",
};
enum Which { kFind, kDraw, kInsert, kErase, kLatest, kAll, kSetCounter };

/// A statement in use. The destructor resets it for the next use.
class Use {
 public:
  explicit Use(sqlite3_stmt* statement) : m_statement(statement) {}
  ~Use() {
    sqlite3_reset(m_statement);
    sqlite3_clear_bindings(m_statement);
  }
  Use(const Use&) = delete;
  Use& operator=(const Use&) = delete;

  Use& bind(int at, const std::string& text) {
    sqlite3_bind_text(m_statement, at, text.c_str(), static_cast<int>(text.size()), SQLITE_STATIC);
    return *this;
  }
  Use& bind(int at, long number) {
    sqlite3_bind_int64(m_statement, at, number);
    return *this;
  }
  /// Moves to the next row. @return whether there is one.
  bool step() {
    const int result = sqlite3_step(m_statement);
    if (result != SQLITE_ROW && result != SQLITE_DONE)
      bare::broken("SQLite:", sqlite3_errmsg(sqlite3_db_handle(m_statement)));
    return result == SQLITE_ROW;
  }
  std::string text(int column) const {
    return {reinterpret_cast<const char*>(sqlite3_column_text(m_statement, column)),
            static_cast<std::size_t>(sqlite3_column_bytes(m_statement, column))};
  }
  long number(int column) const {
    return static_cast<long>(sqlite3_column_int64(m_statement, column));
  }

 private:
  sqlite3_stmt* m_statement;
};

}  // namespace

SqliteIndex::SqliteIndex(const std::string& path, Journal journal) {
  if (sqlite3_open(path.c_str(), &m_database) != SQLITE_OK)
    bare::broken("SQLite cannot open", path);
  if (journal == Journal::kWriteAhead) {
    execute("PRAGMA journal_mode=WAL");
    execute("PRAGMA synchronous=FULL");
  }
}

SqliteIndex::~SqliteIndex() {
  for (sqlite3_stmt* statement : m_prepared) sqlite3_finalize(statement);
  sqlite3_close(m_database);
}

void SqliteIndex::execute(const char* statement) {
  if (sqlite3_exec(m_database, statement, nullptr, nullptr, nullptr) != SQLITE_OK)
    bare::broken("SQLite:", sqlite3_errmsg(m_database));
}

sqlite3_stmt* SqliteIndex::prepared(int which) {
  sqlite3_stmt*& statement = m_prepared[which];
  if (statement == nullptr &&
      sqlite3_prepare_v2(m_database, kStatements[which], -1, &statement, nullptr) != SQLITE_OK)
    bare::broken("SQLite:", sqlite3_errmsg(m_database));
  return statement;
}

void SqliteIndex::fill(const std::function<void(const Visit&)>& each) {
  execute(
      "CREATE TABLE entries (logical TEXT, stamp INTEGER, stored TEXT,"
      " PRIMARY KEY (logical, stamp)) WITHOUT ROWID");
  execute("CREATE TABLE counter (last INTEGER)");
  execute("BEGIN");
  long count = 0;
  each([&](const std::string& logical, long timestamp, const std::string& stored) {
    Use(prepared(kInsert)).bind(1, logical).bind(2, timestamp).bind(3, stored).step();
    ++count;
  });
  execute("INSERT INTO counter VALUES (0)");
  Use(prepared(kSetCounter)).bind(1, count).step();
  execute("COMMIT");
}

bool SqliteIndex::find(const std::string& logical, long timestamp, std::string& stored) {
  Use use(prepared(kFind));
  if (!use.bind(1, logical).bind(2, timestamp).step()) return false;
  stored = use.text(0);
  return true;
}

std::string SqliteIndex::insert(const std::string& logical, long timestamp) {
  execute("BEGIN IMMEDIATE");
  std::string stored;
  {
    Use use(prepared(kDraw));
    use.step();
    stored = stored_name(static_cast<std::size_t>(use.number(0)));
    use.step();
  }
  Use(prepared(kInsert)).bind(1, logical).bind(2, timestamp).bind(3, stored).step();
  execute("COMMIT");
  return stored;
}

void SqliteIndex::erase(const std::string& logical, long timestamp) {
  Use(prepared(kErase)).bind(1, logical).bind(2, timestamp).step();
}

std::string SqliteIndex::move(const std::string& logical, long timestamp,
                              const std::string& new_logical) {
  execute("BEGIN IMMEDIATE");
  std::string stored;
  {
    Use use(prepared(kDraw));
    use.step();
    stored = stored_name(static_cast<std::size_t>(use.number(0)));
    use.step();
  }
  Use(prepared(kInsert)).bind(1, new_logical).bind(2, timestamp).bind(3, stored).step();
  erase(logical, timestamp);
  execute("COMMIT");
  return stored;
}

long SqliteIndex::latest(const std::string& logical) {
  Use use(prepared(kLatest));
  use.bind(1, logical).step();
  return use.number(0);
}

void SqliteIndex::all(const Visit& visit) {
  Use use(prepared(kAll));
  while (use.step()) visit(use.text(0), use.number(1), use.text(2));
}

// ---- LMDB --------------------------------------------------------------------------------------

namespace {

constexpr std::size_t kMapSize = std::size_t{256} << 20U;
constexpr const char* kCounter = "\x01";

void check(int result) {
  if (result != MDB_SUCCESS) bare::broken("LMDB:", mdb_strerror(result));
}

MDB_val value_of(std::string_view text) { return {text.size(), const_cast<char*>(text.data())}; }

std::string_view text_of(const MDB_val& value) {
  return {static_cast<const char*>(value.mv_data), value.mv_size};
}

/// A transaction. The destructor aborts it unless it is committed.
class Transaction {
 public:
  Transaction(MDB_env* environment, unsigned flags) {
    check(mdb_txn_begin(environment, nullptr, flags, &m_transaction));
  }
  ~Transaction() {
    if (m_transaction != nullptr) mdb_txn_abort(m_transaction);
  }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  MDB_txn* get() const { return m_transaction; }
  void commit() {
    check(mdb_txn_commit(m_transaction));
    m_transaction = nullptr;
  }

 private:
  MDB_txn* m_transaction = nullptr;
};

/// Visits the entries from @p first on until @p visit returns false.
template <class Take>
void walk(MDB_env* environment, unsigned table, std::string_view first, Take take) {
  const Transaction transaction(environment, MDB_RDONLY);
  MDB_cursor* cursor = nullptr;
  check(mdb_cursor_open(transaction.get(), table, &cursor));
  MDB_val key = value_of(first);
  MDB_val value;
  int result = mdb_cursor_get(cursor, &key, &value, MDB_SET_RANGE);
  while (result == MDB_SUCCESS && take(text_of(key), text_of(value)))
    result = mdb_cursor_get(cursor, &key, &value, MDB_NEXT);
  mdb_cursor_close(cursor);
}

constexpr std::size_t kStamp = 11;

long stamp_of(std::string_view key) {
  return std::atol(std::string(key.substr(key.size() - kStamp + 1)).c_str());
}

}  // namespace

LmdbIndex::LmdbIndex(const std::string& path) {
  check(mdb_env_create(&m_environment));
  check(mdb_env_set_mapsize(m_environment, kMapSize));
  check(mdb_env_open(m_environment, path.c_str(), MDB_NOSUBDIR, 0666));
  const Transaction transaction(m_environment, MDB_RDONLY);
  check(mdb_dbi_open(transaction.get(), nullptr, 0, &m_table));
}

LmdbIndex::~LmdbIndex() { mdb_env_close(m_environment); }

void LmdbIndex::fill(const std::function<void(const Visit&)>& each) {
  Transaction transaction(m_environment, 0);
  std::size_t count = 0;
  const auto put = [&](const std::string& name, const std::string& text) {
    MDB_val key = value_of(name);
    MDB_val value = value_of(text);
    check(mdb_put(transaction.get(), m_table, &key, &value, 0));
  };
  each([&](const std::string& logical, long timestamp, const std::string& stored) {
    put(key_of(logical, timestamp), stored);
    ++count;
  });
  put(kCounter, stored_name(count));
  transaction.commit();
}

bool LmdbIndex::find(const std::string& logical, long timestamp, std::string& stored) {
  const Transaction transaction(m_environment, MDB_RDONLY);
  const std::string name = key_of(logical, timestamp);
  MDB_val key = value_of(name);
  MDB_val value;
  if (mdb_get(transaction.get(), m_table, &key, &value) != MDB_SUCCESS) return false;
  stored = text_of(value);
  return true;
}

std::string LmdbIndex::insert(const std::string& logical, long timestamp) {
  Transaction transaction(m_environment, 0);
  MDB_val counter = value_of(kCounter);
  MDB_val value;
  check(mdb_get(transaction.get(), m_table, &counter, &value));
  const std::string stored =
      stored_name(static_cast<std::size_t>(std::atol(std::string(text_of(value)).c_str())) + 1);
  MDB_val number = value_of(stored);
  check(mdb_put(transaction.get(), m_table, &counter, &number, 0));
  const std::string name = key_of(logical, timestamp);
  MDB_val key = value_of(name);
  number = value_of(stored);
  check(mdb_put(transaction.get(), m_table, &key, &number, 0));
  transaction.commit();
  return stored;
}

void LmdbIndex::erase(const std::string& logical, long timestamp) {
  Transaction transaction(m_environment, 0);
  const std::string name = key_of(logical, timestamp);
  MDB_val key = value_of(name);
  const int result = mdb_del(transaction.get(), m_table, &key, nullptr);
  if (result != MDB_NOTFOUND) check(result);
  transaction.commit();
}

long LmdbIndex::latest(const std::string& logical) {
  long latest = -1;
  const std::string prefix = logical + "_";
  walk(m_environment, m_table, prefix, [&](std::string_view key, std::string_view) {
    if (key.substr(0, prefix.size()) != prefix) return false;
    latest = std::max(latest, stamp_of(key));
    return true;
  });
  return latest;
}

void LmdbIndex::all(const Visit& visit) {
  walk(m_environment, m_table, "\x02", [&](std::string_view key, std::string_view stored) {
    visit(std::string(key.substr(0, key.size() - kStamp)), stamp_of(key), std::string(stored));
    return true;
  });
}

}  // namespace bench
