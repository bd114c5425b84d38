#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "tools/collector/NATSLibrary.h"
#include "tools/collector/NATSStream.h"

namespace kx::collector {

/// What hears from a connection, on threads of the NATS library.
class NATSListener {
 public:
  /// What became of a message, which is the listener's from now on.
  struct Reply {
    bool isDuplicate =
        false;  ///< of an acknowledgement: the stream had it already, and has been asked for it
    std::string problem = {};  ///< otherwise; empty for an acknowledgement
    bool isPassing = false;    ///< of a problem: another attempt may come off
    unsigned status = 503;     ///< of a problem: what to answer if no other attempt does
  };

  virtual ~NATSListener() = default;
  virtual void replied(NATSPointer<natsMsg> message, const Reply &reply) = 0;
  /// Something has changed about the connection: it is worth a look.
  virtual void changed() = 0;
};

/// A connection to one of a stream's servers, which comes back by itself. All calls are one thread's, and may
/// wait for the server, for a bounded time.
class NATSConnection {
 public:
  /// Throws std::runtime_error when no server is there. Nothing is heard of messages that were sent and not
  /// replied to when the connection goes.
  NATSConnection(const NATSStreamSettings &settings, const std::weak_ptr<NATSListener> &listener);
  ~NATSConnection();
  NATSConnection(const NATSConnection &) = delete;
  NATSConnection &operator=(const NATSConnection &) = delete;

  bool isConnected() const;
  /// It will not come back.
  bool isClosed() const;
  /// Makes the stream where it is missing. Why it is not there; empty when it is.
  std::string findStream();
  /// Sends the message. The listener has it back, later, or at once (and then with `reply`).
  void send(NATSPointer<natsMsg> message, NATSListener &listener);

 private:
  const NATSStreamSettings settings_;
  const std::intptr_t number_;  // by which callbacks know whom to tell
  NATSPointer<natsConnection> connection_;
  std::shared_ptr<jsCtx> context_;  // which who looks after duplicates has, too
};

/// The same checks of the settings that a connection makes. Throws std::runtime_error.
NATSPointer<natsOptions> natsOptionsFrom(const NATSStreamSettings &settings);

}  // namespace kx::collector
