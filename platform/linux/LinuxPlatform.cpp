#include "platform/linux/LinuxPlatform.h"

#include <utility>

#include "platform/linux/geocoding/LinuxGeocoder.h"
#include "platform/linux/https/CurlURLSession.h"

namespace kx {

namespace {

std::shared_ptr<Application> makeApplication(NotificationCenter &center, Dispatch &dispatch,
                                             BackgroundRefreshStatus status, SystemBus &bus,
                                             const std::shared_ptr<LinuxRunLoop> &mainRunLoop,
                                             const std::optional<std::string> &identifier) {
  auto application = std::make_shared<LinuxApplication>(center, dispatch, status);
  application->followSleep(bus, mainRunLoop, identifier);
  return application;
}

}  // namespace

LinuxPlatform::LinuxPlatform(const LinuxHostOptions &options)
    : sandbox_(FlatpakSandbox::ofProcess()),
      identifier_(LinuxBundle::hostIdentifier(options.applicationIdentifier, sandbox_)),
      systemBus_(std::make_shared<SystemBus>(runLoops_.linuxMainRunLoop())),
      sessionBus_(sandbox_ ? std::make_shared<SessionBus>(runLoops_.linuxMainRunLoop()) : nullptr),
      dispatch_(runLoops_.linuxMainRunLoop()),
      mainOperationQueue_(std::make_shared<MainOperationQueue>(dispatch_)),
      notificationCenter_(dispatch_, mainOperationQueue_),
      sharedApplication_(makeApplication(notificationCenter_, dispatch_, options.backgroundRefreshStatus,
                                         *systemBus_, runLoops_.linuxMainRunLoop(), identifier_)),
      urlSessions_(std::make_unique<CurlURLSessionService>(dispatch_, options.certificateAuthorityFile)),
      device_(std::make_shared<LinuxDevice>()),
      advertising_(std::make_shared<LinuxAdvertising>(options.advertisingIdentifier,
                                                      options.advertisingTrackingEnabled)),
      bundle_(std::make_shared<LinuxBundle>(identifier_)),
      location_(makeLocation(options.geocoder != nullptr
                                 ? options.geocoder
                                 : std::make_shared<LinuxGeocoder>(dispatch_, clock_))) {}

LinuxLocationService LinuxPlatform::makeLocation(std::shared_ptr<Geocoder> geocoder) const {
  const auto &loop = runLoops_.linuxMainRunLoop();
  if (sandbox_ && !sandbox_->reachesSystemService(LocationBackend::geoClue.serviceName)) {
    return {loop, sessionBus_, identifier_, std::move(geocoder), {}, LocationBackend::portal};
  }
  return {loop, systemBus_, identifier_, std::move(geocoder)};
}

LinuxPlatform::~LinuxPlatform() = default;

}  // namespace kx
