#pragma once

#include <gio/gio.h>

#include <atomic>
#include <memory>

#include "platform/linux/network/WatchedService.h"

namespace kx {

/// What the network portal says, for a sandbox in which the kernel refuses to: whether there is a way to
/// anywhere. It knows nothing of modems. From any thread.
class PortalNetworkMonitor : public WatchedService {
 public:
  enum class Availability {
    unknown,  ///< nobody watches, there is no portal, it has not answered yet or makes no sense
    available,
    unavailable,
  };

  PortalNetworkMonitor(std::shared_ptr<LinuxRunLoop> mainRunLoop, std::shared_ptr<MessageBus> sessionBus);

  /// By what it is now. Waits for nothing.
  Availability availability() const { return availability_; }

 private:
  void meet(BusPeer &service) override;
  void forget() override;
  void ask();
  void read(GVariant *answer);
  void setAvailability(Availability availability);

  std::atomic<Availability> availability_{Availability::unknown};

  // Used on the main thread only.
  BusPeer *service_ = nullptr;
  bool isAsking_ = false;
  bool changed_ = false;  ///< since it was asked
};

}  // namespace kx
