#pragma once

#include <gio/gio.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "KXPublisher/platform/foundation/Object.h"
#include "platform/linux/bus/BusNameWatch.h"
#include "platform/linux/bus/BusPeer.h"
#include "platform/linux/bus/GLibPointers.h"
#include "platform/linux/bus/SystemBus.h"
#include "platform/linux/network/NetworkWatch.h"
#include "platform/linux/threads/LinuxRunLoop.h"

namespace kx {

/// What NetworkManager says about the connection that everything goes through in the end, a tunnel's traffic
/// too. The bus is used only while somebody watches. From any thread.
class NetworkManagerClient : public Object {
 public:
  enum class Bearer {
    unknown,  ///< nobody watches, NetworkManager does not run, has not answered yet or makes no sense
    cellular,
    other,
  };

  NetworkManagerClient(std::shared_ptr<LinuxRunLoop> mainRunLoop, std::shared_ptr<SystemBus> bus);

  /// By what it is now. Waits for nothing.
  Bearer bearer() const { return bearer_; }

  /// Has `watch` check when the bearer changes, from now on or no longer. Each does nothing when it is so
  /// already.
  void addWatch(const std::shared_ptr<NetworkWatch> &watch);
  void removeWatch(const std::shared_ptr<NetworkWatch> &watch);

 private:
  void followWatches();
  void useConnection(GDBusConnection *connection);
  void meet(const char *owner);
  void leave();
  void noteChange(GVariant *parameters);
  void setBearer(Bearer bearer);

  const std::shared_ptr<LinuxRunLoop> mainRunLoop_;
  const std::shared_ptr<SystemBus> bus_;
  std::atomic<Bearer> bearer_{Bearer::unknown};

  std::mutex mutex_;
  std::vector<std::shared_ptr<NetworkWatch>> watches_;  // guarded by the mutex

  // The rest is used on the main thread only.
  bool observesBus_ = false;
  GLibPointer<GDBusConnection> connection_;  ///< empty while there is no bus
  std::optional<BusNameWatch> nameWatch_;    ///< while somebody watches
  std::optional<BusPeer> service_;           ///< absent while it is not there
};

}  // namespace kx
