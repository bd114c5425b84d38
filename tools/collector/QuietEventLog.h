#pragma once

#include <chrono>
#include <string>

#include "tools/collector/EventLog.h"

namespace kx::collector {

/// Lets only that through which somebody has to look into: what was refused and what failed; and where the
/// collector listens.
class QuietEventLog : public EventLog {
 public:
  /// `log` has to outlive it.
  explicit QuietEventLog(EventLog &log) : log_(log) {}

  void listening(const ListeningAddress &where) override { log_.listening(where); }
  void received(const std::string &client, const Request &request, const Answer &answer) override {
    if (!answer.reason.empty()) log_.received(client, request, answer);
  }
  void answered(const std::string &client, std::chrono::microseconds time) override {
    log_.answered(client, time);
  }
  void failed(const std::string &client, const std::string &reason) override { log_.failed(client, reason); }

 private:
  EventLog &log_;
};

}  // namespace kx::collector
