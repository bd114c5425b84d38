#pragma once

#include <memory>
#include <optional>
#include <string>

#include "KXPublisher/platform/foundation/AtomicProperty.h"
#include "KXPublisher/platform/foundation/Object.h"
#include "KXPublisher/platform/foundation/Value.h"
#include "KXPublisher/transport/KXNetworking.h"

namespace kx {

/// Hands finished messages to the transport, on the calling thread or on a background one. It keeps none.
/// There is one in a process; everything may be called from any thread.
class KX_EXPORT KXLogger : public Object {
 public:
  /// `sharedInstanceWithApiToken:hostname:`: the one logger, made by the first call; later calls ignore their
  /// arguments.
  static std::shared_ptr<KXLogger> sharedInstanceWithApiToken(const std::optional<std::string> &apiToken,
                                                              const std::optional<std::string> &hostname);

  /// `initWithApiToken:hostname:`: a logger bound to the process's transport client, which is made for these
  /// arguments unless it exists.
  static std::shared_ptr<KXLogger> initWithApiToken(const std::optional<std::string> &apiToken,
                                                    const std::optional<std::string> &hostname);

  /// `logData:async:`: passes the message to the client's `sendData:`: before returning, or, when `async`,
  /// from the global background-priority queue. Two messages handed over that way may arrive in either order.
  /// Without a client the message is dropped, and nothing is logged.
  void logData(Dictionary data, bool async);

  /// `kxNetworking`: the transport client.
  std::shared_ptr<KXNetworking> kxNetworking() const { return kxNetworking_.get(); }
  /// `setKxNetworking:`
  void setKxNetworking(std::shared_ptr<KXNetworking> kxNetworking) {
    kxNetworking_.set(std::move(kxNetworking));
  }

 private:
  KXLogger() = default;

  AtomicProperty<std::shared_ptr<KXNetworking>> kxNetworking_;
};

}  // namespace kx
