#pragma once

#include <gio/gio.h>

#include <atomic>
#include <memory>

#include "platform/linux/network/WatchedService.h"

namespace kx {

/// What NetworkManager says about the connection that everything goes through in the end, a tunnel's traffic
/// too. From any thread.
class NetworkManagerClient : public WatchedService {
 public:
  enum class Bearer {
    unknown,  ///< nobody watches, NetworkManager does not run, has not answered yet or makes no sense
    cellular,
    other,
  };

  NetworkManagerClient(std::shared_ptr<LinuxRunLoop> mainRunLoop, std::shared_ptr<MessageBus> bus);

  /// By what it is now. Waits for nothing.
  Bearer bearer() const { return bearer_; }

 private:
  void meet(BusPeer &service) override;
  void forget() override { setBearer(Bearer::unknown); }
  void noteChange(GVariant *parameters);
  void setBearer(Bearer bearer);

  std::atomic<Bearer> bearer_{Bearer::unknown};
};

}  // namespace kx
