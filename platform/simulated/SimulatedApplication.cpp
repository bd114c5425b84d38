#include "KXPublisher/platform/simulated/SimulatedApplication.h"

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
  std::vector<std::function<void()>> handlers;  // called last, since one may begin another task
  for (BackgroundTask &task : backgroundTasks) {
    if (task.expirationHandler != nullptr) handlers.push_back(std::exchange(task.expirationHandler, nullptr));
  }
  for (const auto &handler : handlers) handler();
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
  if (identifier == invalidBackgroundTask || identifier > backgroundTasks.size()) return;
  backgroundTasks[identifier - 1].ended = true;
  backgroundTasks[identifier - 1].expirationHandler = nullptr;
}

}  // namespace kx
