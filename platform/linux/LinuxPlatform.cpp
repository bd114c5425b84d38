#include "platform/linux/LinuxPlatform.h"

#include "platform/linux/geocoding/LinuxGeocoder.h"
#include "platform/linux/https/CurlURLSession.h"

namespace kx {

namespace {

std::shared_ptr<Application> makeApplication(NotificationCenter &center, Dispatch &dispatch,
                                             BackgroundRefreshStatus status, SystemBus &bus,
                                             const std::shared_ptr<LinuxRunLoop> &mainRunLoop) {
  auto application = std::make_shared<LinuxApplication>(center, dispatch, status);
  application->followSleep(bus, mainRunLoop, LinuxBundle::hostIdentifier());
  return application;
}

}  // namespace

LinuxPlatform::LinuxPlatform(const LinuxHostOptions &options)
    : systemBus_(std::make_shared<SystemBus>(runLoops_.linuxMainRunLoop())),
      dispatch_(runLoops_.linuxMainRunLoop()),
      mainOperationQueue_(std::make_shared<MainOperationQueue>(dispatch_)),
      notificationCenter_(dispatch_, mainOperationQueue_),
      sharedApplication_(makeApplication(notificationCenter_, dispatch_, options.backgroundRefreshStatus,
                                         *systemBus_, runLoops_.linuxMainRunLoop())),
      urlSessions_(std::make_unique<CurlURLSessionService>(dispatch_, options.certificateAuthorityFile)),
      device_(std::make_shared<LinuxDevice>()),
      advertising_(std::make_shared<LinuxAdvertising>(options.advertisingIdentifier,
                                                      options.advertisingTrackingEnabled)),
      bundle_(std::make_shared<LinuxBundle>(LinuxBundle::hostIdentifier())),
      location_(runLoops_.linuxMainRunLoop(), systemBus_, LinuxBundle::hostIdentifier(),
                options.geocoder != nullptr ? options.geocoder
                                            : std::make_shared<LinuxGeocoder>(dispatch_, clock_)) {}

LinuxPlatform::~LinuxPlatform() = default;

}  // namespace kx
