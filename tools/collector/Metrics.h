#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "tools/collector/EventLog.h"
#include "tools/collector/MessageStream.h"

namespace kx::collector {

/// Counts what happens, for those who watch over the collector, and passes it on to another log. What has
/// been counted may be asked for on any thread.
class Metrics : public EventLog {
 public:
  /// `next` has to outlive it.
  explicit Metrics(EventLog &next) : next_(next) {}

  void listening(const ListeningAddress &where) override { next_.listening(where); }
  void received(const std::string &client, const Request &request, const Answer &answer) override;
  void receive(const std::string &client, const Request &request, const Answer &answer,
               const Kept &kept) override;
  void answered(const std::string &client, std::chrono::microseconds time) override {
    next_.answered(client, time);
  }
  void failed(const std::string &client, const std::string &reason) override;

  /// How many are open.
  void setConnections(std::size_t count);

  /// All of it as Prometheus reads it (text format 0.0.4), with the stream's where there is one, and no null.
  std::string text(const StreamStatistics *stream) const;

 private:
  void count(const Answer &answer);

  EventLog &next_;
  mutable std::mutex mutex_;
  std::map<std::pair<Endpoint, unsigned>, std::uint64_t> requests_;  // by their answers' status
  std::uint64_t failures_ = 0;
  std::size_t connections_ = 0;
  const double started_ =
      std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
};

}  // namespace kx::collector
