#include "KXPublisher/platform/simulated/SimulatedApplication.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

namespace kx {

namespace {

constexpr std::size_t mostKept = 1000;

}  // namespace

std::size_t SimulatedApplication::openBackgroundTasks() const {
  return static_cast<std::size_t>(std::count_if(backgroundTasks.begin(), backgroundTasks.end(),
                                                [](const BackgroundTask &task) { return !task.ended; }));
}

void SimulatedApplication::enterBackground() {
  inBackground = true;
  static const std::string name = UIApplicationDidEnterBackgroundNotification;
  center_.postNotificationName(name, shared_from_this());
}

void SimulatedApplication::enterForeground() {
  inBackground = false;
  static const std::string name = UIApplicationWillEnterForegroundNotification;
  center_.postNotificationName(name, shared_from_this());
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
  while (backgroundTasks.size() > mostKept && backgroundTasks.front().ended) {
    backgroundTasks.erase(backgroundTasks.begin());
    ++forgotten_;
  }
  backgroundTasks.push_back({name, std::move(expirationHandler)});
  return forgotten_ + backgroundTasks.size();
}

void SimulatedApplication::endBackgroundTask(BackgroundTaskIdentifier identifier) {
  if (endedIdentifiers.size() > mostKept) endedIdentifiers.erase(endedIdentifiers.begin());
  endedIdentifiers.push_back(identifier);
  if (identifier <= forgotten_ || identifier > forgotten_ + backgroundTasks.size()) return;
  BackgroundTask &task = backgroundTasks[identifier - forgotten_ - 1];
  task.ended = true;
  task.expirationHandler = nullptr;
}

}  // namespace kx
