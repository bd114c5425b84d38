#include "platform/linux/network/PortalNetworkMonitor.h"

#include <utility>

#include "platform/linux/bus/Portal.h"
#include "platform/linux/bus/Weakly.h"

namespace kx {

namespace {

constexpr const char *networkMonitorInterface = "org.freedesktop.portal.NetworkMonitor";

}  // namespace

PortalNetworkMonitor::PortalNetworkMonitor(std::shared_ptr<LinuxRunLoop> mainRunLoop,
                                           std::shared_ptr<MessageBus> sessionBus)
    : WatchedService(std::move(mainRunLoop), std::move(sessionBus), portal::serviceName) {}

void PortalNetworkMonitor::meet(BusPeer &service) {
  service_ = &service;
  // It tells only that something has changed, not what.
  service.subscribe(networkMonitorInterface, "changed", portal::path, nullptr,
                    weakly(*this, [](PortalNetworkMonitor &monitor, GVariant *) { monitor.ask(); }));
  ask();
}

void PortalNetworkMonitor::forget() {
  service_ = nullptr;
  isAsking_ = false;
  changed_ = false;
  setAvailability(Availability::unknown);
}

void PortalNetworkMonitor::ask() {
  if (std::exchange(isAsking_, true)) {
    changed_ = true;  // one question at a time, however often it changes
    return;
  }
  service_->call(portal::path, networkMonitorInterface, "GetStatus", nullptr, "(a{sv})",
                 weakly(*this, [](PortalNetworkMonitor &monitor, GVariant *answer, const GError *) {
                   monitor.read(answer);
                 }));
}

void PortalNetworkMonitor::read(GVariant *answer) {
  isAsking_ = false;
  auto availability = Availability::unknown;
  if (answer != nullptr) {
    const GLibPointer<GVariant> status(g_variant_get_child_value(answer, 0));
    gboolean isAvailable = FALSE;
    if (g_variant_lookup(status.get(), "available", "b", &isAvailable) != FALSE) {
      availability = isAvailable != FALSE ? Availability::available : Availability::unavailable;
    }
  }
  setAvailability(availability);
  if (std::exchange(changed_, false)) ask();
}

void PortalNetworkMonitor::setAvailability(Availability availability) {
  if (availability_.exchange(availability) != availability) tellWatches();
}

}  // namespace kx
