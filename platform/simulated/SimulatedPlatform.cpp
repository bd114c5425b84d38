#include "KXPublisher/platform/simulated/SimulatedPlatform.h"

#include <stdexcept>
#include <utility>
#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace kx {

namespace {

SimulatedPlatform *firstMade = nullptr;

std::function<void(SimulatedPlatform &)> &preparation() {
  static auto &prepare = *new std::function<void(SimulatedPlatform &)>;
  return prepare;
}

/// A year's reports compress as often as real ones do in a year, each time with a quarter of a megabyte for
/// the while. Asking the system for that, and giving it back, would be most of what the year costs.
void keepFreedMemory() {
#ifdef __GLIBC__
  constexpr int mebibyte = 1024 * 1024;
  // NOLINTBEGIN(concurrency-mt-unsafe): a test's process has one thread when it makes a device
  mallopt(M_MMAP_THRESHOLD, mebibyte);
  mallopt(M_TRIM_THRESHOLD, 16 * mebibyte);
  mallopt(M_TOP_PAD, mebibyte);
  // NOLINTEND(concurrency-mt-unsafe)
#endif
}

}  // namespace

SimulatedPlatform::SimulatedPlatform(std::uint64_t seed)
    : scheduler(seed),
      mainOperations(std::make_shared<MainOperationQueue>(scheduler)),
      notificationCenter(scheduler, mainOperations),
      application(std::make_shared<SimulatedApplication>(notificationCenter, scheduler)),
      reachability(scheduler, runLoopService),
      device(std::make_shared<SimulatedDevice>()),
      advertisingService(std::make_shared<SimulatedAdvertising>()),
      bundle(std::make_shared<SimulatedBundle>()),
      sharedApplication_(application) {
  urlSessionService.networkIsReached = [this] { return reachability.carriesRequests(); };
  reachability.whenLost = [this] { urlSessionService.loseConnections(); };
  keepFreedMemory();
  if (firstMade == nullptr) firstMade = this;
  if (const auto prepare = std::exchange(preparation(), nullptr)) prepare(*this);
}

SimulatedPlatform::~SimulatedPlatform() {
  switchOff();
}

void SimulatedPlatform::switchOff() {
  urlSessionService.switchOff();  // what the test has for a service may be gone before the device
  scheduler.finish();
  urlSessionService.switchOff();  // and of requests that were just being sent
  runLoopService.invalidateTimers();
  notificationCenter.removeAllObservers();
  telephonyService.removeNotifiers();
  if (firstMade == this) firstMade = nullptr;
}

SimulatedPlatform &SimulatedPlatform::install(std::uint64_t seed) {
  auto platform = std::make_unique<SimulatedPlatform>(seed);
  SimulatedPlatform &installed = *platform;
  if (!Platform::install(std::move(platform))) throw std::logic_error("the process has a platform already");
  return installed;
}

SimulatedPlatform *SimulatedPlatform::made() {
  return firstMade;
}

void SimulatedPlatform::whenNextIsMade(std::function<void(SimulatedPlatform &)> prepare) {
  preparation() = std::move(prepare);
}

void SimulatedPlatform::sleep(double seconds) {
  if (!(seconds >= 0)) throw std::invalid_argument("a device sleeps for a while, not back in time");
  clockService.atSwitchOn += seconds;
  urlSessionService.loseConnections();
}

SimulatedPlatform::Counts SimulatedPlatform::counts() {
  Counts counts{};
  counts.readyTasks = scheduler.readyTasks();
  counts.begunTasks = scheduler.begunTasks();
  counts.laterTasks = scheduler.laterTasks();
  counts.timers = runLoopService.timers();
  counts.registrations = notificationCenter.registrations();
  counts.sessions = static_cast<std::size_t>(urlSessionService.sessionsAlive);
  counts.requests = urlSessionService.requestsUnderWay();
  counts.backgroundTasks = application->openBackgroundTasks();
  counts.telephonyObjects = telephonyService.alive();
  return counts;
}

// ---- Calls across the seam: other threads may come first, and a trace tells of each.

void SimulatedPlatform::cross(const char *name) {
  used_ = true;
  scheduler.say("uses", name);
  scheduler.yield();
}

template <class Service>
Service &SimulatedPlatform::crossed(const char *name, const std::shared_ptr<Service> &own,
                                    Service &ofDevice) {
  cross(name);
  return own != nullptr ? *own : ofDevice;
}

const std::shared_ptr<Application> &SimulatedPlatform::sharedApplication() {
  cross("sharedApplication");
  return replaced.application != nullptr ? replaced.application : sharedApplication_;
}

const std::shared_ptr<OperationQueue> &SimulatedPlatform::mainOperationQueue() {
  cross("mainOperationQueue");
  return replaced.mainOperationQueue != nullptr ? replaced.mainOperationQueue : mainOperations;
}

NotificationCenter &SimulatedPlatform::defaultNotificationCenter() {
  return crossed<NotificationCenter>("defaultNotificationCenter", replaced.notificationCenter,
                                     notificationCenter);
}

Dispatch &SimulatedPlatform::dispatch() {
  return crossed<Dispatch>("dispatch", replaced.dispatch, scheduler);
}

RunLoopService &SimulatedPlatform::runLoops() {
  return crossed<RunLoopService>("runLoops", replaced.runLoops, runLoopService);
}

Clock &SimulatedPlatform::clock() {
  return crossed<Clock>("clock", replaced.clock, clockService);
}

Console &SimulatedPlatform::console() {
  return crossed<Console>("console", replaced.console, consoleService);
}

URLSessionService &SimulatedPlatform::urlSessions() {
  return crossed<URLSessionService>("urlSessions", replaced.urlSessions, urlSessionService);
}

NetworkReachability &SimulatedPlatform::networkReachability() {
  return crossed<NetworkReachability>("networkReachability", replaced.networkReachability, reachability);
}

InterfaceList &SimulatedPlatform::interfaceList() {
  return crossed<InterfaceList>("interfaceList", replaced.interfaceList, interfaces);
}

DeviceService &SimulatedPlatform::devices() {
  return crossed<DeviceService>("devices", replaced.devices, *device);
}

SystemName &SimulatedPlatform::systemName() {
  return crossed<SystemName>("systemName", replaced.systemName, uname);
}

WebViewService &SimulatedPlatform::webViews() {
  return crossed<WebViewService>("webViews", replaced.webViews, webViewService);
}

AdvertisingService &SimulatedPlatform::advertising() {
  return crossed<AdvertisingService>("advertising", replaced.advertising, *advertisingService);
}

Locale &SimulatedPlatform::locale() {
  return crossed<Locale>("locale", replaced.locale, localeService);
}

BundleService &SimulatedPlatform::bundles() {
  return crossed<BundleService>("bundles", replaced.bundles, *bundle);
}

ProcessInfo &SimulatedPlatform::processInfo() {
  return crossed<ProcessInfo>("processInfo", replaced.processInfo, processInformation);
}

TelephonyService &SimulatedPlatform::telephony() {
  return crossed<TelephonyService>("telephony", replaced.telephony, telephonyService);
}

LocationService &SimulatedPlatform::location() {
  return crossed<LocationService>("location", replaced.location, locationService);
}

}  // namespace kx
