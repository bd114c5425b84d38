#include "KXPublisher/providers/KXConnection.h"

#include "KXPublisher/platform/Application.h"
#include "KXPublisher/platform/Platform.h"
#include "platform/foundation/SingleInstance.h"

namespace kx {

using namespace constants;

std::shared_ptr<KXConnection> KXConnection::sharedInstance() {
  return singleInstance([] { return make<KXConnection>(); });
}

void KXConnection::instanceDidStartInit() {
  SocketAddress anyAddress{};
  anyAddress[0] = anyAddress.size();  // length
  anyAddress[1] = 2;                  // AF_INET

  Platform &platform = Platform::current();
  auto *const handle = platform.networkReachability().createWithAddress(anyAddress);
  if (handle == nullptr) return;
  setReachability(handle);
  platform.defaultNotificationCenter().addObserver(
      strong(*this), Selector::of<&KXConnection::reachabilityDidChange>("reachabilityDidChange:"),
      kReachabilityDidChangeNotification, nullptr);
  startNotifier();
  whenApplicationPosts(UIApplicationDidEnterBackgroundNotification, [this] { stopNotifier(); });
  whenApplicationPosts(UIApplicationWillEnterForegroundNotification, [this] {
    startNotifier();
    updateDataInBackground(/*ifPermitted=*/true);
  });
}

void KXConnection::startNotifier() {
  const auto handle = reachability();
  if (!handle) return;
  Platform &platform = Platform::current();
  NetworkReachability &service = platform.networkReachability();
  const bool registered = service.setCallback(*handle, &ReachabilityCallback, {0, weak_from_this()});
  if (*handle != nullptr && registered) {
    service.scheduleWithRunLoop(*handle, platform.runLoops().currentRunLoop(), RunLoopMode::defaultMode);
  }
}

void KXConnection::stopNotifier() {
  const auto handle = reachability();
  if (!handle) return;
  Platform &platform = Platform::current();
  platform.networkReachability().unscheduleFromRunLoop(*handle, platform.runLoops().currentRunLoop(),
                                                       RunLoopMode::defaultMode);
}

void ReachabilityCallback(NetworkReachabilityRef /*target*/, NetworkReachabilityFlags /*flags*/,
                          const std::weak_ptr<Object> &info) {
  const auto provider = info.lock();
  if (provider == nullptr) return;
  Platform::current().defaultNotificationCenter().postNotificationName(kReachabilityDidChangeNotification,
                                                                       provider);
}

void KXConnection::reachabilityDidChange(const std::shared_ptr<Notification> & /*notification*/) {
  updateDataInBackground(/*ifPermitted=*/false);
}

KXNetworkStatus KXConnection::currentReachabilityStatus() {
  const auto handle = reachability();
  if (!handle || *handle == nullptr) return KXNetworkStatusNone;
  const auto flags = Platform::current().networkReachability().getFlags(*handle);
  return flags ? networkStatusForFlags(*flags) : KXNetworkStatusNone;
}

KXNetworkStatus KXConnection::networkStatusForFlags(NetworkReachabilityFlags flags) {
  const auto has = [flags](NetworkReachabilityFlags mask) { return (flags & mask) != 0; };
  if (!has(networkReachabilityFlagsReachable)) return KXNetworkStatusNone;
  if (has(networkReachabilityFlagsIsWWAN)) return KXNetworkStatusCellular;
  if (!has(networkReachabilityFlagsInterventionRequired) &&
      has(networkReachabilityFlagsConnectionOnTraffic | networkReachabilityFlagsConnectionOnDemand)) {
    return KXNetworkStatusWifi;
  }
  return has(networkReachabilityFlagsConnectionRequired) ? KXNetworkStatusNone : KXNetworkStatusWifi;
}

std::shared_ptr<MutableDictionary> KXConnection::computeData() {
  Dictionary facts;
  switch (currentReachabilityStatus()) {
    case KXNetworkStatusWifi:
      facts.set(dataKeyConnectionType, dataValueConnectionTypeWifi);
      break;
    case KXNetworkStatusCellular:
      facts.set(dataKeyConnectionType, dataValueConnectionTypeCellular);
      break;
    case KXNetworkStatusNone:
      break;
  }
  return std::make_shared<MutableDictionary>(std::move(facts));
}

}  // namespace kx
