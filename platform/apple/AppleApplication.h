#pragma once

#include "KXPublisher/platform/Application.h"

namespace kx {

/// The shared UIApplication object. It is asked for at each use: a library may be called before there is one,
/// and then nothing is known and nothing granted.
class AppleApplication : public Application {
 public:
  BackgroundRefreshStatus backgroundRefreshStatus() override;
  BackgroundTaskIdentifier beginBackgroundTaskWithName(const std::string &name,
                                                       std::function<void()> expirationHandler) override;
  void endBackgroundTask(BackgroundTaskIdentifier identifier) override;
};

}  // namespace kx
