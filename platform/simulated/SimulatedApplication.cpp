#include "platform/simulated/SimulatedApplication.h"

#include <stdexcept>
#include <utility>

namespace kx {

void SimulatedApplication::enterBackground() {
  center_.postNotificationName(UIApplicationDidEnterBackgroundNotification, shared_from_this());
}

void SimulatedApplication::enterForeground() {
  center_.postNotificationName(UIApplicationWillEnterForegroundNotification, shared_from_this());
}

void SimulatedApplication::expireBackgroundTasks() {
  // By index: a handler may begin another task.
  for (std::size_t i = 0; i < backgroundTasks.size(); ++i) {
    if (!backgroundTasks[i].ended && backgroundTasks[i].expirationHandler != nullptr) {
      std::exchange(backgroundTasks[i].expirationHandler, nullptr)();
    }
  }
}

BackgroundRefreshStatus SimulatedApplication::backgroundRefreshStatus() {
  if (!dispatch_.isMainThread()) throw std::logic_error("backgroundRefreshStatus off the main thread");
  return refreshStatus;
}

BackgroundTaskIdentifier SimulatedApplication::beginBackgroundTaskWithName(
    const std::string &name, std::function<void()> expirationHandler) {
  backgroundTasks.push_back({name, std::move(expirationHandler)});
  return backgroundTasks.size();
}

void SimulatedApplication::endBackgroundTask(BackgroundTaskIdentifier identifier) {
  endedIdentifiers.push_back(identifier);
  if (identifier == UIBackgroundTaskInvalid || identifier > backgroundTasks.size()) return;
  backgroundTasks[identifier - 1].ended = true;
  backgroundTasks[identifier - 1].expirationHandler = nullptr;
}

}  // namespace kx
