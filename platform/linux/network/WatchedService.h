#pragma once

#include <gio/gio.h>

#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "KXPublisher/platform/foundation/Object.h"
#include "platform/linux/bus/BusNameWatch.h"
#include "platform/linux/bus/BusPeer.h"
#include "platform/linux/bus/GLibPointers.h"
#include "platform/linux/bus/MessageBus.h"
#include "platform/linux/network/NetworkWatch.h"
#include "platform/linux/threads/LinuxRunLoop.h"

namespace kx {

/// A service on a bus that knows something of the network. The bus is used only while somebody watches; the
/// service is followed as it comes and goes, and not started.
class WatchedService : public Object {
 public:
  /// Has `watch` check when what the service says changes, from now on or no longer. Each does nothing when
  /// it is so already. From any thread.
  void addWatch(const std::shared_ptr<NetworkWatch> &watch);
  void removeWatch(const std::shared_ptr<NetworkWatch> &watch);

 protected:
  /// `name`: the service's, of static storage.
  WatchedService(std::shared_ptr<LinuxRunLoop> mainRunLoop, std::shared_ptr<MessageBus> bus,
                 const char *name);

  // On the main thread.

  /// It is there, and is to be asked. Calls and signals end with it.
  virtual void meet(BusPeer &service) = 0;
  /// It is gone, or nobody watches: nothing is known any more.
  virtual void forget() = 0;
  /// What it says has changed.
  void tellWatches();

 private:
  void followWatches();
  void useConnection(GDBusConnection *connection);
  void whenAppeared(const char *owner);
  void leave();

  const std::shared_ptr<LinuxRunLoop> mainRunLoop_;
  const std::shared_ptr<MessageBus> bus_;
  const char *const name_;

  std::mutex mutex_;
  std::vector<std::shared_ptr<NetworkWatch>> watches_;  // guarded by the mutex

  // The rest is used on the main thread only.
  bool observesBus_ = false;
  GLibPointer<GDBusConnection> connection_;  ///< empty while there is no bus
  std::optional<BusNameWatch> nameWatch_;    ///< while somebody watches
  std::optional<BusPeer> service_;           ///< absent while it is not there
};

}  // namespace kx
