// What the store is asked for.

#include <algorithm>

#include "tools/collector/RecordDocument.h"
#include "tools/collector/Store.h"

namespace kx::collector {

namespace {

constexpr const char *summaryColumns =
    "r.id, r.time, r.kind, r.accepted, r.status, r.reason, r.device, r.bundle, r.packedSize, r.unpackedSize, "
    "r.warnings, r.fault, r.eventId, r.eventTime, r.latitude, r.longitude, r.horizontalAccuracy, r.receive, "
    "r.work, r.send";
constexpr const char *contentColumns =
    "c.method, c.target, c.remoteAddress, c.headerFields, c.body, c.text, c.offendingOffset, "
    "c.offendingBytes, c.answerFields";
constexpr int firstContentColumn = 20;

std::optional<std::string> textOrNothing(const Statement &row, int column) {
  if (row.isNull(column)) return std::nullopt;
  return row.text(column);
}

std::optional<double> realOrNothing(const Statement &row, int column) {
  if (row.isNull(column)) return std::nullopt;
  return row.real(column);
}

void readSummary(const Statement &row, RecordSummary &summary) {
  summary.id = static_cast<std::uint64_t>(row.number(0));
  summary.time = row.number(1);
  summary.kind = row.text(2);
  summary.accepted = row.number(3) != 0;
  summary.status = static_cast<unsigned>(row.number(4));
  summary.reason = row.text(5);
  summary.device = textOrNothing(row, 6);
  summary.bundle = textOrNothing(row, 7);
  summary.packedSize = static_cast<std::size_t>(row.number(8));
  summary.unpackedSize = static_cast<std::size_t>(row.number(9));
  if (!row.isNull(10)) summary.warnings = Document::parse(row.text(10)).get<std::vector<std::string>>();
  summary.fault = textOrNothing(row, 11);
  summary.eventId = textOrNothing(row, 12);
  if (!row.isNull(13)) summary.eventTime = row.number(13);
  summary.latitude = realOrNothing(row, 14);
  summary.longitude = realOrNothing(row, 15);
  summary.horizontalAccuracy = realOrNothing(row, 16);
  summary.microseconds = {row.number(17), row.number(18), row.number(19)};
}

HeaderFields fieldsIn(const std::string &text) {
  return Document::parse(text).get<HeaderFields>();
}

Record recordIn(const Statement &row) {
  Record record;
  readSummary(row, record);
  constexpr int first = firstContentColumn;
  record.method = row.bytes(first);
  record.target = row.bytes(first + 1);
  record.remoteAddress = row.text(first + 2);
  record.headerFields = fieldsIn(row.bytes(first + 3));
  record.body = row.bytes(first + 4);
  if (!row.isNull(first + 5)) record.text = row.bytes(first + 5);
  if (!row.isNull(first + 6)) {
    record.offending = OffendingBytes{static_cast<std::size_t>(row.number(first + 6)), row.bytes(first + 7)};
  }
  record.answerFields = fieldsIn(row.bytes(first + 8));
  return record;
}

/// The conditions of a filter, and the values in them.
class Conditions {
 public:
  explicit Conditions(const RecordFilter &filter) : filter_(filter) {
    if (filter.kind) add("r.kind = ");
    if (filter.accepted) add("r.accepted = ");
    if (filter.device) add("r.device = ");
    if (filter.bundle) add("r.bundle = ");
    if (filter.after) add("r.id > ");
    if (filter.before) add("r.id < ");
    if (filter.warned) {
      text_ += *filter.warned ? " AND r.warnings IS NOT NULL" : " AND r.warnings IS NULL";
    }
    if (filter.text) {
      const std::string place = "?" + std::to_string(++places_);
      text_ += " AND (kx_contains(c.text, " + place + ") OR kx_contains(r.reason, " + place +
               ") OR kx_contains(c.target, " + place + "))";
    }
  }

  /// The tables that they need, and themselves. It is the requests that are gone through, in both cases.
  std::string text(bool withContents) const {
    const bool joined = withContents || filter_.text;
    return std::string(" FROM request r") + (joined ? " CROSS JOIN content c ON c.id = r.id" : "") +
           " WHERE 1" + text_;
  }

  void bind(Statement &statement) const {
    int place = 0;
    if (filter_.kind) statement.bind(++place, std::string_view(*filter_.kind));
    if (filter_.accepted) statement.bind(++place, std::int64_t{*filter_.accepted});
    if (filter_.device) statement.bind(++place, std::string_view(*filter_.device));
    if (filter_.bundle) statement.bind(++place, std::string_view(*filter_.bundle));
    if (filter_.after) statement.bind(++place, static_cast<std::int64_t>(*filter_.after));
    if (filter_.before) statement.bind(++place, static_cast<std::int64_t>(*filter_.before));
    if (filter_.text) statement.bind(++place, std::string_view(*filter_.text));
  }

 private:
  void add(const char *condition) {
    text_ += std::string(" AND ") + condition + "?" + std::to_string(++places_);
  }

  const RecordFilter &filter_;
  std::string text_;
  int places_ = 0;
};

}  // namespace

RecordCounts Store::counts(const RecordFilter &filter) {
  const auto lock = reading();
  const Conditions conditions(filter);
  Statement row(*reading_,
                "SELECT count(*), total(r.accepted), total(r.kind = 'login'), total(r.kind = 'message'), "
                "count(r.warnings)" +
                    conditions.text(false));
  conditions.bind(row);
  row.step();
  const auto number = [&row](int column) { return static_cast<std::uint64_t>(row.number(column)); };
  return {number(0), number(1), number(0) - number(1), number(2), number(3), number(4)};
}

RecordPage Store::requests(const RecordFilter &filter, std::size_t limit, bool newestFirst) {
  const auto lock = reading();
  const Conditions conditions(filter);
  // One more than wanted tells whether there are more.
  Statement row(*reading_, std::string("SELECT ") + summaryColumns + conditions.text(false) +
                               " ORDER BY r.id" + (newestFirst ? " DESC" : "") + " LIMIT " +
                               std::to_string(limit + 1));
  conditions.bind(row);
  RecordPage page;
  while (row.step()) {
    if (page.requests.size() == limit) {
      page.more = true;
      break;
    }
    readSummary(row, page.requests.emplace_back());
  }
  return page;
}

std::vector<Record> Store::records(const RecordFilter &filter, std::size_t limit) {
  const auto lock = reading();
  const Conditions conditions(filter);
  Statement row(*reading_, std::string("SELECT ") + summaryColumns + ", " + contentColumns +
                               conditions.text(true) + " ORDER BY r.id LIMIT " + std::to_string(limit));
  conditions.bind(row);
  std::vector<Record> records;
  while (row.step()) records.push_back(recordIn(row));
  return records;
}

std::optional<Record> Store::record(std::uint64_t id) {
  RecordFilter filter;
  filter.after = id - 1;
  filter.before = id + 1;
  if (id == 0) return std::nullopt;
  auto found = records(filter, 1);
  if (found.empty()) return std::nullopt;
  return std::move(found.front());
}

std::optional<std::uint64_t> Store::previous(const RecordSummary &of) {
  if (!of.device) return std::nullopt;
  const auto lock = reading();
  Statement row(*reading_,
                "SELECT id FROM request WHERE device = ?1 AND bundle IS ?2 AND kind = 'message' "
                "AND id < ?3 ORDER BY id DESC LIMIT 1");
  row.bind(1, of.device);
  row.bind(2, of.bundle);
  row.bind(3, static_cast<std::int64_t>(of.id));
  if (!row.step()) return std::nullopt;
  return static_cast<std::uint64_t>(row.number(0));
}

std::vector<KnownDevice> Store::devices() {
  const auto lock = reading();
  Statement row(*reading_,
                "SELECT device, bundle, min(time), max(time), count(*), total(NOT accepted) FROM request "
                "WHERE device IS NOT NULL GROUP BY device, bundle ORDER BY max(id) DESC");
  std::vector<KnownDevice> devices;
  while (row.step()) {
    devices.push_back({row.text(0), textOrNothing(row, 1), row.number(2), row.number(3),
                       static_cast<std::uint64_t>(row.number(4)), static_cast<std::uint64_t>(row.number(5))});
  }
  return devices;
}

std::vector<std::string> Store::latestEventIds(std::size_t count) {
  const auto lock = reading();
  Statement row(
      *reading_,
      "SELECT eventId FROM request WHERE accepted AND eventId IS NOT NULL ORDER BY id DESC LIMIT ?1");
  row.bind(1, static_cast<std::int64_t>(count));
  std::vector<std::string> ids;
  while (row.step()) ids.push_back(row.text(0));
  std::reverse(ids.begin(), ids.end());
  return ids;
}

}  // namespace kx::collector
