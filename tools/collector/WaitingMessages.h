#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/collector/MessageStream.h"

namespace kx::collector {

/// The messages that a stream has not acknowledged, and what is to be done about them when: to be sent, under
/// way, or to be tried again. Bounded. A message under way is not here: whoever sends it has it, and brings
/// it back to have it tried again.
///
/// To be used by one thread at a time.
template <typename Message>
class WaitingMessages {
 public:
  using Time = std::chrono::steady_clock::time_point;
  using Duration = std::chrono::steady_clock::duration;
  using Id = std::uint64_t;

  struct Limits {
    Duration timeout;   ///< after which a message is given up
    Duration patience;  ///< how long one may wait before no more are taken
    std::size_t maximumCount;
    std::size_t maximumSize;  ///< in bytes
  };

  struct Ended {
    MessageStream::Acknowledged acknowledged;
    std::optional<Message> message;  ///< absent when it is under way
    Duration time;                   ///< that it has waited
  };

  explicit WaitingMessages(Limits limits) : limits_(limits) {}

  std::size_t count() const { return entries_.size(); }
  std::size_t size() const { return size_; }

  /// Why no other message is taken now; empty when one of that size is.
  std::string whyNot(std::size_t size, Time now) const {
    if (entries_.empty()) return {};
    if (now - entries_.begin()->second.taken >= limits_.patience) return "the stream is slow";
    if (entries_.size() >= limits_.maximumCount || size_ + size > limits_.maximumSize) {
      return "too many messages are waiting for the stream";
    }
    return {};
  }

  void take(Message message, std::size_t size, MessageStream::Acknowledged acknowledged, Time now) {
    const Id id = ++lastId_;
    entries_[id] = {std::move(acknowledged), std::move(message), size, now};
    size_ += size;
    toSend_.push_back(id);
  }

  /// The next one to be sent, which is under way then.
  std::optional<std::pair<Id, Message>> next(Time now) {
    while (!later_.empty() && later_.begin()->first <= now) {
      toSend_.push_back(later_.begin()->second);
      later_.erase(later_.begin());
    }
    while (!toSend_.empty()) {
      const Id id = toSend_.front();
      toSend_.pop_front();
      const auto found = entries_.find(id);
      if (found == entries_.end()) continue;  // given up
      std::optional<Message> message = std::move(found->second.message);
      found->second.message.reset();
      if (message) return std::pair<Id, Message>(id, std::move(*message));
    }
    return std::nullopt;
  }

  /// The message comes back to be tried again then. Given back when it is given up by now.
  std::optional<Message> tryAgain(Id id, Message message, Time when) {
    const auto found = entries_.find(id);
    if (found == entries_.end()) return message;
    found->second.message = std::move(message);
    later_.emplace(when, id);
    return std::nullopt;
  }

  /// Its outcome is known. Absent when it was given up before.
  std::optional<Ended> end(Id id, Time now) {
    const auto found = entries_.find(id);
    if (found == entries_.end()) return std::nullopt;
    Entry entry = std::move(found->second);
    entries_.erase(found);
    size_ -= entry.size;
    return Ended{std::move(entry.acknowledged), std::move(entry.message), now - entry.taken};
  }

  /// The oldest one, if its time is over.
  std::optional<Ended> giveUp(Time now) {
    if (entries_.empty() || now - entries_.begin()->second.taken < limits_.timeout) return std::nullopt;
    return end(entries_.begin()->first, now);
  }

  /// Forgets all of them.
  void clear() {
    entries_.clear();
    size_ = 0;
  }

  /// When `giveUp` may have something or, if they may be sent, `next`. Absent while nothing waits.
  std::optional<Time> wakeUp(bool maySend) const {
    if (entries_.empty()) return std::nullopt;
    const Time end = entries_.begin()->second.taken + limits_.timeout;
    if (!maySend) return end;
    if (!toSend_.empty()) return Time::min();
    return later_.empty() ? end : std::min(end, later_.begin()->first);
  }

 private:
  struct Entry {
    MessageStream::Acknowledged acknowledged;
    std::optional<Message> message;  // absent while it is under way
    std::size_t size = 0;
    Time taken;
  };

  const Limits limits_;
  Id lastId_ = 0;
  std::map<Id, Entry> entries_;  // the oldest first
  std::size_t size_ = 0;         // of all of them
  std::deque<Id> toSend_;
  std::multimap<Time, Id> later_;
};

}  // namespace kx::collector
