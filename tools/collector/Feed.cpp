#include "tools/collector/Feed.h"

#include <algorithm>

#include "tools/collector/RecordDocument.h"

namespace kx::collector {

namespace {

constexpr std::chrono::seconds timeBetweenComments{15};
constexpr std::size_t eventsAtOnce = 200;
constexpr std::size_t linesAtOnce = 50;

std::string eventText(const char *name, const std::string &data, std::optional<std::uint64_t> id = {}) {
  return std::string("event: ") + name + "\n" + (id ? "id: " + std::to_string(*id) + "\n" : "") +
         "data: " + data + "\n\n";
}

std::string line(const Document &document) {
  return lineOf(document);
}

}  // namespace

EventFeed::EventFeed(Store &store, const Faults &faults, std::optional<std::uint64_t> lastEventId, Time now)
    : store_(store),
      faults_(faults),
      resets_(store.resets()),
      alterations_(store.changedSince(UINT64_MAX).second),
      nextComment_(now) {
  const std::uint64_t last = store.lastId();
  // A collector that was started anew without a file has begun to count anew.
  isStale_ = lastEventId && *lastEventId > last;
  position_ = isStale_ ? 0 : lastEventId.value_or(last);
}

Feed::Piece EventFeed::next(Time now) {
  std::string text;
  const std::uint64_t resets = store_.resets();
  if (resets != resets_ || isStale_) {
    resets_ = resets;
    isStale_ = false;
    text += eventText("reset", "{}");
  }
  const std::uint64_t faultChanges = faults_.changes();
  if (faultChanges_ != faultChanges) {
    faultChanges_ = faultChanges;
    text += eventText("faults", line({{"faults", faults_.documents()}}));
  }
  RecordFilter filter;
  filter.after = position_;
  for (const RecordSummary &summary : store_.requests(filter, eventsAtOnce).requests) {
    text += eventText("request", line(summaryDocument(summary)), summary.id);
    position_ = summary.id;
  }
  const auto [altered, alterations] = store_.changedSince(alterations_);
  alterations_ = alterations;
  for (const std::uint64_t id : altered) {
    // Without an id: where to resume is elsewhere.
    const auto record = store_.record(id);
    if (record && id <= position_) text += eventText("request", line(summaryDocument(*record)));
  }
  if (!text.empty()) {
    nextComment_ = now + timeBetweenComments;
  } else if (now >= nextComment_) {
    nextComment_ = now + timeBetweenComments;
    text = ":\n\n";
  }
  return {std::move(text), false};
}

WaitFeed::WaitFeed(Store &store, RecordFilter filter, std::size_t count, Time deadline)
    : store_(store),
      filter_(std::move(filter)),
      count_(count),
      deadline_(deadline),
      position_(filter_.after.value_or(0)),
      resets_(store.resets()),
      alterations_(store.changedSince(UINT64_MAX).second) {}

Feed::Piece WaitFeed::next(Time now) {
  if (isOver_) return {{}, true};
  const std::uint64_t resets = store_.resets();
  const std::uint64_t alterations = store_.changedSince(UINT64_MAX).second;
  if (resets != resets_ || alterations != alterations_) {
    // What was found may be gone, or match no more; others may match by now.
    resets_ = resets;
    alterations_ = alterations;
    position_ = filter_.after.value_or(0);
    found_.clear();
  }
  RecordFilter filter = filter_;
  filter.after = position_;
  const std::uint64_t last = store_.lastId();
  for (RecordSummary &summary : store_.requests(filter, count_ - found_.size()).requests) {
    found_.push_back(std::move(summary));
  }
  // All up to there has been looked at, whether it matched or not.
  position_ = std::max(position_, last);
  if (!found_.empty()) position_ = std::max(position_, found_.back().id);
  const bool isMet = found_.size() >= count_;
  if (!isMet && now < deadline_) return {};
  isOver_ = true;
  Document requests = Document::array();
  for (const RecordSummary &summary : found_) requests.push_back(summaryDocument(summary));
  return {line({{"met", isMet}, {"requests", requests}}) + "\n", true};
}

Feed::Piece DownloadFeed::next(Time) {
  std::string text;
  for (const Record &record : store_.records(filter_, linesAtOnce)) {
    text += line(recordDocument(record, store_.previous(record))) + "\n";
    filter_.after = record.id;
  }
  const bool isLast = text.empty();
  return {std::move(text), isLast};
}

}  // namespace kx::collector
