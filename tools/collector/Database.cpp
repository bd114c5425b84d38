#include "tools/collector/Database.h"

namespace kx::collector {

Database::Database(const std::string &file, int flags) {
  sqlite3 *handle = nullptr;
  const int result = sqlite3_open_v2(file.c_str(), &handle, flags | SQLITE_OPEN_NOMUTEX, nullptr);
  handle_.reset(handle);
  if (result != SQLITE_OK) throw DatabaseError(handle ? sqlite3_errmsg(handle) : "out of memory");
  sqlite3_extended_result_codes(handle, 1);
  sqlite3_busy_timeout(handle, 10000);
}

void Database::execute(const char *sql) {
  if (sqlite3_exec(handle(), sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
    throw DatabaseError(sqlite3_errmsg(handle()));
  }
}

std::int64_t Database::number(const char *sql) {
  Statement statement(*this, sql);
  return statement.step() ? statement.number(0) : 0;
}

Statement::Statement(Database &database, const std::string &sql) : database_(database.handle()) {
  sqlite3_stmt *statement = nullptr;
  check(sqlite3_prepare_v2(database_, sql.data(), static_cast<int>(sql.size()), &statement, nullptr));
  statement_.reset(statement);
}

void Statement::bind(int place, std::int64_t value) {
  check(sqlite3_bind_int64(statement_.get(), place, value));
}

void Statement::bind(int place, double value) {
  check(sqlite3_bind_double(statement_.get(), place, value));
}

void Statement::bind(int place, std::string_view text) {
  check(sqlite3_bind_text64(statement_.get(), place, text.data() ? text.data() : "", text.size(),
                            SQLITE_STATIC, SQLITE_UTF8));
}

void Statement::bindBytes(int place, std::string_view bytes) {
  check(sqlite3_bind_blob64(statement_.get(), place, bytes.data(), bytes.size(), SQLITE_STATIC));
}

void Statement::bindNull(int place) {
  check(sqlite3_bind_null(statement_.get(), place));
}

bool Statement::step() {
  const int result = sqlite3_step(statement_.get());
  if (result != SQLITE_ROW && result != SQLITE_DONE) check(result);
  return result == SQLITE_ROW;
}

void Statement::run() {
  // A statement that has failed has to be reset, too.
  struct Resetting {
    Statement &statement;
    ~Resetting() { statement.reset(); }
  } const resetting{*this};
  while (step()) continue;
}

void Statement::reset() {
  sqlite3_reset(statement_.get());  // tells once more how the last step went
}

bool Statement::isNull(int column) const {
  return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL;
}

std::int64_t Statement::number(int column) const {
  return sqlite3_column_int64(statement_.get(), column);
}

double Statement::real(int column) const {
  return sqlite3_column_double(statement_.get(), column);
}

std::string Statement::text(int column) const {
  const auto *text = reinterpret_cast<const char *>(sqlite3_column_text(statement_.get(), column));
  if (text == nullptr) return {};
  return std::string(text, static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column)));
}

std::string Statement::bytes(int column) const {
  const auto *bytes = static_cast<const char *>(sqlite3_column_blob(statement_.get(), column));
  if (bytes == nullptr) return {};
  return std::string(bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column)));
}

void Statement::check(int result) const {
  if (result != SQLITE_OK) throw DatabaseError(sqlite3_errmsg(database_));
}

Transaction::~Transaction() {
  if (!isOver_) sqlite3_exec(database_.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void Transaction::commit() {
  database_.execute("COMMIT");
  isOver_ = true;
}

}  // namespace kx::collector
