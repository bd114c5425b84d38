// A host in Objective-C++: beside the Objective-C face it uses the library's own classes, which are in C++.
// It is compiled and not run.

#import <KXPublisher/KXPublisher.h>

#include <memory>
#include <optional>
#include <string>

#include "KXPublisher/KXPublisher.hpp"  // the publisher's class in C++
#include "KXPublisher/diagnostics/KXLog.h"
#include "KXPublisher/providers/KXDevice.h"
#include "KXPublisher/providers/KXLocation.h"
#include "KXPublisher/publisher/KXLogger.h"
#include "KXPublisher/transport/KXNetworking.h"

void startReporting();

void startReporting() {
  KXPublisher *const face = [KXPublisher sharedInstanceWithApiToken:@"token" hostname:@"collect.example.com"];
  const std::shared_ptr<kx::KXPublisher> publisher =
      kx::KXPublisher::sharedInstanceWithApiToken(std::nullopt, std::nullopt);  // the same one
  kx::KXLog::sharedInstance()->setLogLevel(kx::KXLogLevelDebug);
  const std::optional<std::string> model = kx::KXDevice::sharedInstance()->deviceName();
  NSLog(@"%@ on %s with %zu addresses: %s", face, model.value_or("something").c_str(),
        kx::KXNetworking::getIPAddresses().size(), publisher->description().c_str());
  if (kx::KXLocation::sharedInstance()->hasPermissions()) {
    kx::KXLogger::sharedInstanceWithApiToken(std::nullopt, std::nullopt)->logData({}, true);
  }
}
