#include "tools/collector/StoreWriter.h"

#include <algorithm>
#include <cstring>

#include "tools/collector/RecordDocument.h"

namespace kx::collector {

namespace {

/// The value of a column without a copy. SQLite ends each with a zero.
const char *valueOf(sqlite3_value *value) {
  return reinterpret_cast<const char *>(sqlite3_value_text(value));
}

void contains(sqlite3_context *context, int, sqlite3_value **values) {
  const char *text = valueOf(values[0]);
  const char *part = valueOf(values[1]);
  sqlite3_result_int(context, text != nullptr && part != nullptr && strcasestr(text, part) != nullptr);
}

}  // namespace

void addFunctions(Database &database) {
  const std::lock_guard<std::mutex> lock(database.mutex);
  sqlite3_create_function_v2(database.handle(), "kx_contains", 2, SQLITE_UTF8 | SQLITE_DETERMINISTIC, nullptr,
                             contains, nullptr, nullptr, nullptr);
}

Store::Writer::Writer(Database &database, std::size_t keep)
    : database_(database),
      keep_(keep),
      insertRequest_(database,
                     "INSERT INTO request VALUES(?1,?2,?3,?4,?5,?6,?7,?8,?9,?10,?11,?12,?13,?14,?15,?16,"
                     "?17,?18,?19,?20)"),
      insertContent_(database, "INSERT INTO content VALUES(?1,?2,?3,?4,?5,?6,?7,?8,?9,?10)"),
      setSendTime_(database, "UPDATE request SET send = ?2 WHERE id = ?1"),
      readWarnings_(database, "SELECT warnings FROM request WHERE id = ?1"),
      setWarnings_(database, "UPDATE request SET warnings = ?2 WHERE id = ?1"),
      deleteRequests_(database, "DELETE FROM request WHERE id <= ?1"),
      deleteContents_(database, "DELETE FROM content WHERE id <= ?1") {}

void Store::Writer::apply(std::deque<Change> &changes) {
  std::exception_ptr failure;
  try {
    const std::lock_guard<std::mutex> lock(database_.mutex);
    Transaction transaction(database_);
    for (const Change &change : changes) change.apply(*this);
    insertPending();
    prune();
    transaction.commit();
  } catch (...) {
    failure = std::current_exception();
    pending_.clear();
  }
  for (const Change &change : changes) {
    if (change.written) change.written(failure);
  }
}

void Store::Writer::append(const Record &record) {
  pending_.push_back({record, record.microseconds.send});
}

void Store::Writer::insertPending() {
  for (const Pending &pending : pending_) insert(pending);
  pending_.clear();
}

void Store::Writer::insert(const Pending &pending) {
  const Record &record = pending.record;
  Statement &request = insertRequest_;
  request.bind(1, static_cast<std::int64_t>(record.id));
  request.bind(2, record.time);
  request.bind(3, std::string_view(record.kind));
  request.bind(4, std::int64_t{record.accepted});
  request.bind(5, std::int64_t{record.status});
  request.bind(6, std::string_view(record.reason));
  request.bind(7, record.device);
  request.bind(8, record.bundle);
  request.bind(9, static_cast<std::int64_t>(record.packedSize));
  request.bind(10, static_cast<std::int64_t>(record.unpackedSize));
  const std::string warnings = record.warnings.empty() ? "" : lineOf(record.warnings);
  record.warnings.empty() ? request.bindNull(11) : request.bind(11, std::string_view(warnings));
  request.bind(12, record.fault);
  request.bind(13, record.eventId);
  request.bind(14, record.eventTime);
  request.bind(15, record.latitude);
  request.bind(16, record.longitude);
  request.bind(17, record.horizontalAccuracy);
  request.bind(18, record.microseconds.receive);
  request.bind(19, record.microseconds.work);
  request.bind(20, pending.send);
  request.run();

  Statement &content = insertContent_;
  const std::string fields = fieldsLine(record.headerFields);
  const std::string answerFields = fieldsLine(record.answerFields);
  content.bind(1, static_cast<std::int64_t>(record.id));
  content.bindBytes(2, record.method);
  content.bindBytes(3, record.target);
  content.bind(4, std::string_view(record.remoteAddress));
  content.bindBytes(5, fields);
  content.bindBytes(6, record.body);
  record.text ? content.bindBytes(7, *record.text) : content.bindNull(7);
  if (record.offending) {
    content.bind(8, static_cast<std::int64_t>(record.offending->offset));
    content.bindBytes(9, record.offending->bytes);
  } else {
    content.bindNull(8);
    content.bindNull(9);
  }
  content.bindBytes(10, answerFields);
  content.run();
  lastId_ = record.id;
}

void Store::Writer::setSendTime(std::uint64_t id, std::int64_t microseconds) {
  if (!pending_.empty() && id >= pending_.front().record.id) {
    pending_[id - pending_.front().record.id].send = microseconds;
    return;
  }
  setSendTime_.bind(1, static_cast<std::int64_t>(id));
  setSendTime_.bind(2, microseconds);
  setSendTime_.run();
}

void Store::Writer::addWarning(std::uint64_t id, const std::string &warning) {
  insertPending();
  readWarnings_.bind(1, static_cast<std::int64_t>(id));
  Document warnings = Document::array();
  if (readWarnings_.step() && !readWarnings_.isNull(0)) warnings = Document::parse(readWarnings_.text(0));
  readWarnings_.reset();
  warnings.push_back(warning);
  const std::string text = lineOf(warnings);
  setWarnings_.bind(1, static_cast<std::int64_t>(id));
  setWarnings_.bind(2, std::string_view(text));
  setWarnings_.run();
}

void Store::Writer::reset() {
  insertPending();
  database_.execute("DELETE FROM request");
  database_.execute("DELETE FROM content");
}

void Store::Writer::prune() {
  const std::uint64_t gone = lastId_ > keep_ ? lastId_ - keep_ : 0;
  if (gone <= gone_) return;
  gone_ = gone;
  for (Statement *statement : {&deleteRequests_, &deleteContents_}) {
    statement->bind(1, static_cast<std::int64_t>(gone));
    statement->run();
  }
}

}  // namespace kx::collector
