#include "platform/linux/LinuxPlatform.h"

#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "platform/linux/geocoding/LinuxGeocoder.h"
#include "platform/linux/https/CurlURLSession.h"

namespace kx {

namespace {

std::shared_ptr<LinuxApplication> makeApplication(NotificationCenter &center, Dispatch &dispatch,
                                                  BackgroundRefreshStatus status, SystemBus &bus,
                                                  const std::shared_ptr<LinuxRunLoop> &mainRunLoop,
                                                  const std::optional<std::string> &identifier) {
  auto application = std::make_shared<LinuxApplication>(center, dispatch, status);
  application->followSleep(bus, mainRunLoop, identifier);
  return application;
}

CurlSettings sessionSettings(std::optional<std::string> certificateAuthorityFile,
                             std::function<std::shared_ptr<void>()> heldByRequest) {
  CurlSettings settings;
  settings.certificateAuthorityFile = std::move(certificateAuthorityFile);
  settings.heldByRequest = std::move(heldByRequest);
  return settings;
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
      application_(makeApplication(notificationCenter_, dispatch_, options.backgroundRefreshStatus,
                                   *systemBus_, runLoops_.linuxMainRunLoop(), identifier_)),
      urlSessions_(std::make_unique<CurlURLSessionService>(
          dispatch_, sessionSettings(options.certificateAuthorityFile,
                                     [application = application_] { return application->delaySleep(); }))),
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
