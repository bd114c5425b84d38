#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kx::collector {

/// What SQLite says is the matter.
class DatabaseError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A connection to an SQLite database. One thread at a time, for which `mutex` is there.
class Database {
 public:
  /// `flags` are those of sqlite3_open_v2. Throws DatabaseError, as all of this does.
  Database(const std::string &file, int flags);

  void execute(const char *sql);
  /// The first column of the first row.
  std::int64_t number(const char *sql);
  sqlite3 *handle() const { return handle_.get(); }

  std::mutex mutex;

 private:
  struct Closer {
    void operator()(sqlite3 *database) const { sqlite3_close_v2(database); }
  };
  std::unique_ptr<sqlite3, Closer> handle_;
};

/// A statement that is ready to run, again and again. Places for values, and columns, count from 1 and from
/// 0, as SQLite has it.
class Statement {
 public:
  Statement(Database &database, const std::string &sql);

  /// The values have to live until the next reset.
  void bind(int place, std::int64_t value);
  void bind(int place, double value);
  void bind(int place, std::string_view text);
  void bindBytes(int place, std::string_view bytes);
  void bindNull(int place);
  template <typename Value>
  void bind(int place, const std::optional<Value> &value) {
    value ? bind(place, *value) : bindNull(place);
  }

  /// Whether there is a next row.
  bool step();
  /// Steps to the end, and resets.
  void run();
  void reset();

  bool isNull(int column) const;
  std::int64_t number(int column) const;
  double real(int column) const;
  std::string text(int column) const;
  std::string bytes(int column) const;

 private:
  void check(int result) const;

  struct Finalizer {
    void operator()(sqlite3_stmt *statement) const { sqlite3_finalize(statement); }
  };
  sqlite3 *database_;
  std::unique_ptr<sqlite3_stmt, Finalizer> statement_;
};

/// Takes back what was done since the beginning of a transaction, unless it was committed.
class Transaction {
 public:
  explicit Transaction(Database &database) : database_(database) { database_.execute("BEGIN IMMEDIATE"); }
  ~Transaction();
  Transaction(const Transaction &) = delete;
  Transaction &operator=(const Transaction &) = delete;

  void commit();

 private:
  Database &database_;
  bool isOver_ = false;
};

}  // namespace kx::collector
