#include "KXPublisher/platform/linux/LinuxHost.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <utility>

#include "platform/linux/LinuxPlatform.h"
#include "platform/linux/console/CallbackBoundary.h"
#include "platform/linux/lifecycle/LinuxApplication.h"

namespace kx {

namespace {

/// The options on their way from the host to the platform.
struct Handover {
  std::mutex mutex;
  LinuxHostOptions options;
  bool taken = false;
  std::atomic<bool> late{false};  ///< some came after they were taken
};

Handover &handover() {
  static auto &handover = *new Handover;
  return handover;
}

/// Calls `operation` on the application, unless the process has another platform.
void tellApplication(void (LinuxApplication::*operation)()) noexcept {
  runAtBoundary([operation] {
    const auto application =
        std::dynamic_pointer_cast<LinuxApplication>(Platform::current().sharedApplication());
    if (application != nullptr) (*application.*operation)();
  });
}

}  // namespace

bool LinuxHost::setOptions(LinuxHostOptions options) noexcept {
  bool inTime = false;
  runAtBoundary([&options, &inTime] {
    Handover &to = handover();
    const std::lock_guard<std::mutex> lock(to.mutex);
    inTime = !to.taken;
    if (inTime) {
      to.options = std::move(options);
    } else {
      to.late = true;
    }
  });
  return inTime;
}

void LinuxHost::didEnterBackground() noexcept {
  tellApplication(&LinuxApplication::didEnterBackground);
}

void LinuxHost::willEnterForeground() noexcept {
  tellApplication(&LinuxApplication::willEnterForeground);
}

bool LinuxPlatform::hostOptionsCameTooLate() {
  return handover().late;
}

std::unique_ptr<Platform> makeLinkedPlatform() {
  LinuxHostOptions options;
  {
    Handover &from = handover();
    const std::lock_guard<std::mutex> lock(from.mutex);
    from.taken = true;
    options = std::move(from.options);
  }
  return std::make_unique<LinuxPlatform>(options);
}

}  // namespace kx
