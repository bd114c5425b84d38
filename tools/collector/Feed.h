#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "tools/collector/Faults.h"
#include "tools/collector/Store.h"

namespace kx::collector {

/// The body of an answer that comes bit by bit, as there is something to tell.
class Feed {
 public:
  using Time = std::chrono::steady_clock::time_point;
  struct Piece {
    std::string text;
    bool isLast = false;
  };

  virtual ~Feed() = default;

  /// What there is to send by now; nothing if nothing has happened. Is asked again when something has
  /// changed, at `wakeUp` at the latest, and after each piece at once.
  virtual Piece next(Time now) = 0;
  virtual Time wakeUp() const { return Time::max(); }
};

/// Requests and faults as server-sent events. It reads on where it stands, so that a slow reader costs
/// nothing.
class EventFeed : public Feed {
 public:
  /// Begins after the latest request, or after that one.
  EventFeed(Store &store, const Faults &faults, std::optional<std::uint64_t> lastEventId, Time now);

  Piece next(Time now) override;
  Time wakeUp() const override { return nextComment_; }

 private:
  Store &store_;
  const Faults &faults_;
  std::uint64_t position_ = 0;
  std::uint64_t resets_ = 0;
  std::uint64_t alterations_ = 0;
  std::optional<std::uint64_t> faultChanges_;
  bool isStale_ = false;
  Time nextComment_;
};

/// One answer, as soon as that many requests match or the time is over.
class WaitFeed : public Feed {
 public:
  WaitFeed(Store &store, RecordFilter filter, std::size_t count, Time deadline);

  Piece next(Time now) override;
  Time wakeUp() const override { return deadline_; }

 private:
  Store &store_;
  const RecordFilter filter_;
  const std::size_t count_;
  const Time deadline_;
  std::uint64_t position_ = 0;
  std::uint64_t resets_ = 0;
  std::uint64_t alterations_ = 0;
  std::vector<RecordSummary> found_;
  bool isOver_ = false;
};

/// Whole requests, one a line.
class DownloadFeed : public Feed {
 public:
  DownloadFeed(Store &store, RecordFilter filter) : store_(store), filter_(std::move(filter)) {}

  Piece next(Time now) override;

 private:
  Store &store_;
  RecordFilter filter_;
};

}  // namespace kx::collector
