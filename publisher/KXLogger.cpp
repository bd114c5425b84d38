#include "KXPublisher/publisher/KXLogger.h"

#include <utility>

#include "KXPublisher/platform/DispatchQueue.h"
#include "KXPublisher/platform/Platform.h"
#include "diagnostics/Journal.h"
#include "platform/foundation/SingleInstance.h"

namespace kx {

std::shared_ptr<KXLogger> KXLogger::sharedInstanceWithApiToken(const std::optional<std::string> &apiToken,
                                                               const std::optional<std::string> &hostname) {
  return singleInstance([&] { return initWithApiToken(apiToken, hostname); });
}

std::shared_ptr<KXLogger> KXLogger::initWithApiToken(const std::optional<std::string> &apiToken,
                                                     const std::optional<std::string> &hostname) {
  std::shared_ptr<KXLogger> logger(new KXLogger);
  logger->setKxNetworking(KXNetworking::sharedInstanceWithApiToken(apiToken, hostname));
  return logger;
}

void KXLogger::logData(Dictionary data, bool async) {
  const auto networking = kxNetworking();
  if (networking == nullptr) {
    Journal::shared().reportDropped(KXDiagnosis::Drop::noTransport);
    return;
  }
  if (!async) {
    networking->sendData(std::move(data));
    return;
  }
  Platform::current()
      .dispatch()
      .globalQueue(DispatchQueuePriority::background)
      .async([logger = strong(*this), data = std::move(data)]() mutable {
        if (const auto current = logger->kxNetworking()) current->sendData(std::move(data));
      });
}

}  // namespace kx
