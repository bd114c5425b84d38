#include "platform/linux/LinuxPlatform.h"

#include "platform/linux/CurlURLSession.h"

namespace kx {

LinuxPlatform::LinuxPlatform(const LinuxHostOptions &options)
    : dispatch_(runLoops_.linuxMainRunLoop()),
      mainOperationQueue_(std::make_shared<MainOperationQueue>(dispatch_)),
      notificationCenter_(dispatch_, mainOperationQueue_),
      sharedApplication_(std::make_shared<LinuxApplication>(notificationCenter_, dispatch_,
                                                            options.backgroundRefreshStatus)),
      urlSessions_(std::make_unique<CurlURLSessionService>(dispatch_, options.certificateAuthorityFile)),
      device_(std::make_shared<LinuxDevice>()),
      advertising_(std::make_shared<LinuxAdvertising>(options)),
      bundle_(std::make_shared<LinuxBundle>(LinuxBundle::hostIdentifier())) {}

LinuxPlatform::~LinuxPlatform() = default;

}  // namespace kx
