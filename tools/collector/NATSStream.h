#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/collector/MessageStream.h"

namespace kx::collector {

struct NATSStreamSettings {
  std::vector<std::string> servers;                  ///< URLs, "nats://" or "tls://"; may have users in them
  std::optional<std::filesystem::path> credentials;  ///< a user's JWT and its key, as NATS's tools write it
  std::optional<std::filesystem::path> authority;    ///< the CA certificates to trust; those of the system
  std::string name = "KX-MESSAGES";
  std::string subject = "kx.messages";  ///< the beginning of all subjects; the stream gets all below it
  unsigned replicas = 1;                ///< of a stream that is made here
  /// When an outcome is known at the latest, or little later.
  std::chrono::milliseconds timeout{5000};
  /// When an attempt has failed.
  std::chrono::milliseconds attemptTimeout{2000};
  /// A stream that owes an acknowledgement for that long gets nothing more until it has given it.
  std::chrono::milliseconds patience{1000};
  /// What waits for acknowledgement at the most: messages, and their bytes.
  std::size_t maximumWaiting = 8192;
  std::size_t maximumWaitingSize = std::size_t{64} << 20;
};

/// A stream of NATS JetStream. It is made, where it does not exist: on disk, without limits, and such that it
/// refuses new messages, and keeps old ones, when there is no place left.
///
/// Messages are sent without waiting for the acknowledgements of those before. What does not come off is
/// tried again until its time is over; the stream tells by the id what it has already.
class NATSStream : public MessageStream {
 public:
  /// Is told, on a thread of the stream, when it gets ready and when it is away, and why.
  using StateChanged = std::function<void(bool isReady, const std::string &problem)>;

  /// Throws std::runtime_error when the settings make no sense. The stream itself may come later.
  NATSStream(const NATSStreamSettings &settings, StateChanged stateChanged);
  /// Nobody hears of messages any more whose outcome is not known by now.
  ~NATSStream() override;
  NATSStream(const NATSStream &) = delete;
  NATSStream &operator=(const NATSStream &) = delete;

  void publish(const StreamMessage &message, Acknowledged acknowledged) override;
  StreamStatistics statistics() const override;

 private:
  class State;
  const std::shared_ptr<State> state_;
};

}  // namespace kx::collector
