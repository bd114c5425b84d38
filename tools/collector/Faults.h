#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "tools/collector/Document.h"

namespace kx::collector {

/// A switch that makes the service misbehave, for the tests of a client.
struct Fault {
  enum class Endpoint { any, login, message };
  enum class Action {
    status,  ///< answer so to requests that would be accepted
    delay,   ///< hold the answer back
    drop,    ///< close the connection instead of answering
    stall,   ///< send half of the answer, nothing for that long, and close the connection
    expire,  ///< a message's token is good no more; a login's token is not good from the beginning
    refuse,  ///< a message is refused as if its token was unknown, a login is refused; with 403
  };

  std::uint64_t id = 0;  ///< 1, 2, ...
  Endpoint endpoint = Endpoint::any;
  std::optional<std::string> device;  ///< of messages alone; a login does not tell
  Action action = Action::status;
  unsigned status = 0;                  ///< for `status`
  std::optional<std::string> location;  ///< for `status`, a redirect: where to
  std::chrono::milliseconds time{0};    ///< for `delay` and `stall`
  std::optional<std::uint64_t> count;   ///< for so many requests; absent until it is switched off
  std::uint64_t done = 0;               ///< how often it has acted
};

/// The switches that are on. May be used on any thread.
class Faults {
 public:
  /// Switches it on; its id is new.
  Fault add(Fault fault);
  /// Whether it was there.
  bool remove(std::uint64_t id);
  void clear();

  /// Those that are for such a request, in the order in which they were switched on.
  std::vector<Fault> matching(Fault::Endpoint endpoint, const std::optional<std::string> &device) const;
  /// It acts now. False when it does not, since it has gone or is used up.
  bool use(std::uint64_t id);

  /// All of them in JSON.
  Document documents() const;
  /// How often anything about them has changed.
  std::uint64_t changes() const;

 private:
  mutable std::mutex mutex_;
  std::vector<Fault> faults_;
  std::uint64_t lastId_ = 0;
  std::uint64_t changes_ = 0;
};

Document documentOf(const Fault &fault);

/// Reads what a client asks for. Throws a Refusal with status 400.
Fault faultFrom(const std::string &json);

}  // namespace kx::collector
