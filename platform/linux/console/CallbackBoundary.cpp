#include "platform/linux/console/CallbackBoundary.h"

#include "platform/linux/console/LinuxConsole.h"

namespace kx {

void reportEndedException(const std::exception *exception) noexcept {
  // Not by way of a `std::string`: there may be no memory left for one.
  g_log_structured(LinuxConsole::domain, LinuxConsole::level, "MESSAGE", "An exception ended a task: %s",
                   exception == nullptr ? "not a std::exception" : exception->what());
}

}  // namespace kx
