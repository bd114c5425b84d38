#include "platform/linux/network/WatchedService.h"

#include <algorithm>
#include <utility>

#include "platform/linux/bus/Weakly.h"

namespace kx {

WatchedService::WatchedService(std::shared_ptr<LinuxRunLoop> mainRunLoop, std::shared_ptr<MessageBus> bus,
                               const char *name)
    : mainRunLoop_(std::move(mainRunLoop)), bus_(std::move(bus)), name_(name) {}

void WatchedService::addWatch(const std::shared_ptr<NetworkWatch> &watch) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (std::find(watches_.begin(), watches_.end(), watch) != watches_.end()) return;
    watches_.push_back(watch);
  }
  mainRunLoop_->perform([service = strong(*this)] { service->followWatches(); });
}

void WatchedService::removeWatch(const std::shared_ptr<NetworkWatch> &watch) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = std::find(watches_.begin(), watches_.end(), watch);
    if (found == watches_.end()) return;
    watches_.erase(found);
  }
  mainRunLoop_->perform([service = strong(*this)] { service->followWatches(); });
}

// ---- On the main thread

void WatchedService::followWatches() {
  bool isWatched = false;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    isWatched = !watches_.empty();
  }
  if (!isWatched) {
    nameWatch_.reset();
    leave();
  } else if (!observesBus_) {
    observesBus_ = true;
    bus_->observe(weakly(*this, &WatchedService::useConnection));
  } else if (connection_ != nullptr && !nameWatch_) {
    nameWatch_.emplace(connection_.get(), name_, G_BUS_NAME_WATCHER_FLAGS_NONE, mainRunLoop_->context(),
                       weakly(*this, &WatchedService::whenAppeared), weakly(*this, &WatchedService::leave));
  }
}

void WatchedService::useConnection(GDBusConnection *connection) {
  nameWatch_.reset();
  leave();
  connection_ = retained(connection);
  followWatches();
}

void WatchedService::whenAppeared(const char *owner) {
  leave();
  meet(service_.emplace(connection_.get(), owner, mainRunLoop_->context()));
}

void WatchedService::leave() {
  service_.reset();
  forget();
}

void WatchedService::tellWatches() {
  std::vector<std::shared_ptr<NetworkWatch>> watches;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    watches = watches_;
  }
  for (const auto &watch : watches) watch->checkSoon();
}

}  // namespace kx
