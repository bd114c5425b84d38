#include "tools/collector/MemoryTables.h"

#include <algorithm>
#include <cstdint>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/collector/RecordDocument.h"

namespace kx::collector {

namespace {

// SQLite calls these tables virtual: it asks for their rows and values by functions in C.

using Entry = RecordMemory::Entry;

constexpr std::uint64_t lastPossibleId = INT64_MAX;
// Enough that the memory's lock is seldom taken, and few enough that it is not held for long.
constexpr std::size_t entriesAtOnce = 500;

void setText(sqlite3_context *context, std::string_view text) {
  sqlite3_result_text64(context, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
}

void setBytes(sqlite3_context *context, std::string_view bytes) {
  sqlite3_result_blob64(context, bytes.data(), bytes.size(), SQLITE_TRANSIENT);
}

void setNumber(sqlite3_context *context, std::int64_t number) {
  sqlite3_result_int64(context, number);
}

// What is absent stays null.
void setText(sqlite3_context *context, const std::optional<std::string> &text) {
  if (text) setText(context, std::string_view(*text));
}
void setNumber(sqlite3_context *context, const std::optional<std::int64_t> &number) {
  if (number) setNumber(context, *number);
}
void setReal(sqlite3_context *context, const std::optional<double> &number) {
  if (number) sqlite3_result_double(context, *number);
}

void setRequestColumn(sqlite3_context *context, const Entry &entry, int column) {
  const Record &record = *entry.record;
  switch (column) {
    case 0:
      return setNumber(context, static_cast<std::int64_t>(record.id));
    case 1:
      return setNumber(context, record.time);
    case 2:
      return setText(context, std::string_view(record.kind));
    case 3:
      return setNumber(context, std::int64_t{record.accepted});
    case 4:
      return setNumber(context, std::int64_t{record.status});
    case 5:
      return setText(context, std::string_view(record.reason));
    case 6:
      return setText(context, record.device);
    case 7:
      return setText(context, record.bundle);
    case 8:
      return setNumber(context, static_cast<std::int64_t>(record.packedSize));
    case 9:
      return setNumber(context, static_cast<std::int64_t>(record.unpackedSize));
    case 10:
      return record.warnings.empty() ? void() : setText(context, std::string_view(lineOf(record.warnings)));
    case 11:
      return setText(context, record.fault);
    case 12:
      return setText(context, record.eventId);
    case 13:
      return setNumber(context, record.eventTime);
    case 14:
      return setReal(context, record.latitude);
    case 15:
      return setReal(context, record.longitude);
    case 16:
      return setReal(context, record.horizontalAccuracy);
    case 17:
      return setNumber(context, record.microseconds.receive);
    case 18:
      return setNumber(context, record.microseconds.work);
    default:
      return setNumber(context, entry.send);
  }
}

void setContentColumn(sqlite3_context *context, const Entry &entry, int column) {
  const Record &record = *entry.record;
  switch (column) {
    case 0:
      return setNumber(context, static_cast<std::int64_t>(record.id));
    case 1:
      return setBytes(context, record.method);
    case 2:
      return setBytes(context, record.target);
    case 3:
      return setText(context, std::string_view(record.remoteAddress));
    case 4:
      return setBytes(context, fieldsLine(record.headerFields));
    case 5:
      return setBytes(context, record.body);
    case 6:
      return record.text ? setBytes(context, *record.text) : void();
    case 7:
      return record.offending ? setNumber(context, static_cast<std::int64_t>(record.offending->offset))
                              : void();
    case 8:
      return record.offending ? setBytes(context, record.offending->bytes) : void();
    default:
      return setBytes(context, fieldsLine(record.answerFields));
  }
}

/// One of the two.
struct TableKind {
  const char *name;
  const char *declaration;
  void (*setColumn)(sqlite3_context *, const Entry &, int column);
};

constexpr TableKind requestTable{
    "request",
    "CREATE TABLE request(id INTEGER, time, kind, accepted, status, reason, device, bundle, packedSize, "
    "unpackedSize, warnings, fault, eventId, eventTime, latitude, longitude, horizontalAccuracy, receive, "
    "work, "
    "send)",
    setRequestColumn};
constexpr TableKind contentTable{
    "content",
    "CREATE TABLE content(id INTEGER, method, target, remoteAddress, headerFields, body, text, "
    "offendingOffset, offendingBytes, answerFields)",
    setContentColumn};

/// What a module is registered with. SQLite deletes it.
struct Source {
  const TableKind &kind;
  const RecordMemory &memory;
};

struct Table : sqlite3_vtab {
  explicit Table(const Source &from) : sqlite3_vtab(), source(from) {}

  const Source &source;
};

/// Where a query is in the table.
struct Cursor : sqlite3_vtab_cursor {
  explicit Cursor(const Source &from) : sqlite3_vtab_cursor(), source(from) {}

  const Source &source;
  RecordMemory::Range rest;  // that has not been fetched yet
  bool newestFirst = false;
  std::vector<Entry> entries;
  std::size_t at = 0;

  void fetch(std::size_t count) {
    entries = source.memory.entries(rest, newestFirst, count);
    at = 0;
    if (entries.empty()) return;
    const std::uint64_t id = entries.back().record->id;
    newestFirst ? rest.last = id - 1 : rest.first = id + 1;
  }
};

/// No exception goes through SQLite.
template <typename Action>
int guarded(Action action) {
  try {
    action();
    return SQLITE_OK;
  } catch (const std::bad_alloc &) {
    return SQLITE_NOMEM;
  } catch (...) {
    return SQLITE_ERROR;
  }
}

int connectTable(sqlite3 *database, void *source, int, const char *const *, sqlite3_vtab **table, char **) {
  const Source &from = *static_cast<const Source *>(source);
  const int result = sqlite3_declare_vtab(database, from.kind.declaration);
  if (result != SQLITE_OK) return result;
  return guarded([&] { *table = new Table(from); });
}

int disconnectTable(sqlite3_vtab *table) {
  delete static_cast<Table *>(table);
  return SQLITE_OK;
}

int openCursor(sqlite3_vtab *table, sqlite3_vtab_cursor **cursor) {
  return guarded([&] { *cursor = new Cursor(static_cast<const Table *>(table)->source); });
}

int closeCursor(sqlite3_vtab_cursor *cursor) {
  delete static_cast<Cursor *>(cursor);
  return SQLITE_OK;
}

bool isRelation(unsigned char comparison) {
  return comparison == SQLITE_INDEX_CONSTRAINT_EQ || comparison == SQLITE_INDEX_CONSTRAINT_GT ||
         comparison == SQLITE_INDEX_CONSTRAINT_GE || comparison == SQLITE_INDEX_CONSTRAINT_LT ||
         comparison == SQLITE_INDEX_CONSTRAINT_LE;
}

/// How the memory can help with a query: by ids, and in their order. Everything else SQLite does itself. What
/// beginQuery() has to know stands in `idxNum`, 1 for the newest first, and in `idxStr`, one character for
/// each comparison with an id.
int planQuery(sqlite3_vtab *, sqlite3_index_info *query) {
  std::string comparisons;
  bool isOne = false;
  for (int number = 0; number < query->nConstraint; ++number) {
    const auto &constraint = query->aConstraint[number];
    if (constraint.usable == 0 || constraint.iColumn > 0 || !isRelation(constraint.op)) continue;
    comparisons += static_cast<char>(constraint.op);
    isOne = isOne || constraint.op == SQLITE_INDEX_CONSTRAINT_EQ;
    query->aConstraintUsage[number].argvIndex = static_cast<int>(comparisons.size());
  }
  query->idxStr = sqlite3_mprintf("%s", comparisons.c_str());
  if (query->idxStr == nullptr) return SQLITE_NOMEM;
  query->needToFreeIdxStr = 1;
  if (query->nOrderBy == 1 && query->aOrderBy[0].iColumn <= 0) {
    query->orderByConsumed = 1;
    query->idxNum = query->aOrderBy[0].desc;
  }
  query->estimatedRows = isOne ? 1 : 100000;
  query->estimatedCost = isOne ? 1 : comparisons.empty() ? 100000 : 50000;
  return SQLITE_OK;
}

int beginQuery(sqlite3_vtab_cursor *of, int newestFirst, const char *comparisons, int count,
               sqlite3_value **values) {
  return guarded([&] {
    Cursor &cursor = *static_cast<Cursor *>(of);
    auto &[first, last] = cursor.rest;
    first = 1;
    last = lastPossibleId;
    bool isOne = false;
    for (int number = 0; number < count; ++number) {
      // SQLite checks each once more: it is enough not to leave out what it wants.
      const auto id =
          static_cast<std::uint64_t>(std::max<std::int64_t>(0, sqlite3_value_int64(values[number])));
      const int comparison = static_cast<unsigned char>(comparisons[number]);
      isOne = isOne || comparison == SQLITE_INDEX_CONSTRAINT_EQ;
      const bool isUpper =
          comparison == SQLITE_INDEX_CONSTRAINT_LT || comparison == SQLITE_INDEX_CONSTRAINT_LE;
      const bool isLower =
          comparison == SQLITE_INDEX_CONSTRAINT_GT || comparison == SQLITE_INDEX_CONSTRAINT_GE;
      if (!isUpper) first = std::max(first, id);
      if (!isLower) last = std::min(last, id);
    }
    cursor.newestFirst = newestFirst != 0;
    cursor.fetch(isOne ? 1 : entriesAtOnce);
  });
}

int nextRow(sqlite3_vtab_cursor *of) {
  return guarded([&] {
    Cursor &cursor = *static_cast<Cursor *>(of);
    if (++cursor.at == cursor.entries.size()) cursor.fetch(entriesAtOnce);
  });
}

int isAtEndOfRows(sqlite3_vtab_cursor *cursor) {
  const Cursor &of = *static_cast<const Cursor *>(cursor);
  return of.at >= of.entries.size() ? 1 : 0;
}

int columnOf(sqlite3_vtab_cursor *of, sqlite3_context *context, int number) {
  return guarded([&] {
    const Cursor &cursor = *static_cast<const Cursor *>(of);
    cursor.source.kind.setColumn(context, cursor.entries[cursor.at], number);
  });
}

int rowIdOf(sqlite3_vtab_cursor *of, sqlite3_int64 *id) {
  const Cursor &cursor = *static_cast<const Cursor *>(of);
  *id = static_cast<sqlite3_int64>(cursor.entries[cursor.at].record->id);
  return SQLITE_OK;
}

/// A table that is there without being created, and that nobody can write.
sqlite3_module tableModule() {
  sqlite3_module module{};
  module.iVersion = 1;
  module.xConnect = connectTable;
  module.xBestIndex = planQuery;
  module.xDisconnect = disconnectTable;
  module.xOpen = openCursor;
  module.xClose = closeCursor;
  module.xFilter = beginQuery;
  module.xNext = nextRow;
  module.xEof = isAtEndOfRows;
  module.xColumn = columnOf;
  module.xRowid = rowIdOf;
  return module;
}

}  // namespace

void addMemoryTables(Database &database, RecordMemory &memory) {
  static const sqlite3_module module = tableModule();
  for (const TableKind *kind : {&requestTable, &contentTable}) {
    const int result =
        sqlite3_create_module_v2(database.handle(), kind->name, &module, new Source{*kind, memory},
                                 [](void *source) { delete static_cast<Source *>(source); });
    if (result != SQLITE_OK) throw DatabaseError(sqlite3_errmsg(database.handle()));
  }
}

}  // namespace kx::collector
