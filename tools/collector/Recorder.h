#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <string>

#include "tools/collector/EventLog.h"
#include "tools/collector/Store.h"

namespace kx::collector {

/// Keeps what happens in a store, and passes it on to another log. Warns of logins that no message follows.
class Recorder : public EventLog {
 public:
  /// A message follows a login within seconds, unless something is wrong.
  static constexpr std::chrono::seconds patience{60};

  Recorder(EventLog &next, Store &store) : next_(next), store_(store) {}

  void listening(const ListeningAddress &where) override { next_.listening(where); }
  void received(const std::string &client, const Request &request, const Answer &answer) override;
  void receive(const std::string &client, const Request &request, const Answer &answer,
               const Kept &kept) override;
  void answered(const std::string &client, std::chrono::microseconds time) override;
  void failed(const std::string &client, const std::string &reason) override;

  /// Looks for logins that should have been followed by a message. To be called every few seconds.
  void checkLogins(std::chrono::steady_clock::time_point now);

 private:
  struct Login {
    std::uint64_t id;
    std::string token;
    std::chrono::steady_clock::time_point time;
  };
  void follow(std::uint64_t id, const Request &request, const Answer &answer);

  EventLog &next_;
  Store &store_;
  std::map<std::string, std::uint64_t> unanswered_;  // ids by clients
  std::deque<Login> logins_;                         // that no message has followed yet, oldest first
};

/// What is kept of a request.
Record recordOf(const std::string &client, const Request &request, const Answer &answer);

}  // namespace kx::collector
