#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace kx::collector {

/// A message on its way into a stream.
struct StreamMessage {
  std::string subject;
  /// What the stream knows a message by that comes again.
  std::string id;
  std::vector<std::pair<std::string, std::string>> headers;  ///< besides that; printable ASCII
  std::string payload;
};

/// What became of a message.
struct StreamOutcome {
  std::string problem = {};  ///< why the stream does not have it, as far as is known; empty when it has
  unsigned status = 503;     ///< what to answer then
};

/// How a stream does.
struct StreamStatistics {
  /// The upper bounds of `times`, in seconds; its last one has none.
  static constexpr std::array<double, 12> bounds = {0.001, 0.0025, 0.005, 0.01, 0.025, 0.05,
                                                    0.1,   0.25,   0.5,   1,    2.5,   5};

  bool isReady = false;
  std::size_t waiting = 0;         ///< messages that are not acknowledged yet
  std::size_t waitingSize = 0;     ///< of these, in bytes
  std::uint64_t acknowledged = 0;  ///< messages
  std::uint64_t duplicates = 0;    ///< of these, those whose id the stream had already
  std::uint64_t turnedAway = 0;    ///< messages that were not even tried: the stream was away, slow or full
  std::uint64_t failed = 0;        ///< messages that were tried in vain
  std::uint64_t repeated = 0;      ///< attempts after the first one
  double seconds = 0;              ///< that all acknowledged ones took
  std::array<std::uint64_t, bounds.size() + 1> times{};  ///< how many of them took so long
};

/// Where accepted messages go. All of it may be called on any thread.
class MessageStream {
 public:
  using Acknowledged = std::function<void(const StreamOutcome &)>;

  virtual ~MessageStream() = default;

  /// Tells, on any thread, at once or within a bounded time, what became of the message. It must not wait
  /// for anything. A message whose outcome is a problem may be in the stream nevertheless, if the
  /// acknowledgement was lost; never twice.
  virtual void publish(const StreamMessage &message, Acknowledged acknowledged) = 0;
  virtual StreamStatistics statistics() const = 0;
};

}  // namespace kx::collector
