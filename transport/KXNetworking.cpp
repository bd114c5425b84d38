#include "KXPublisher/transport/KXNetworking.h"

#include <utility>

#include "diagnostics/Journal.h"
#include "platform/foundation/SingleInstance.h"

namespace kx {

std::shared_ptr<KXNetworking> KXNetworking::sharedInstanceWithApiToken(
    const std::optional<std::string> &apiToken, const std::optional<std::string> &hostname) {
  return singleInstance([&] { return initWithApiToken(apiToken, hostname); });
}

std::shared_ptr<KXNetworking> KXNetworking::initWithApiToken(std::optional<std::string> apiToken,
                                                             std::optional<std::string> hostname) {
  std::shared_ptr<KXNetworking> networking(new KXNetworking(std::move(apiToken), std::move(hostname)));
  Journal::shared().clientMade(networking->apiToken(), networking->hostname());
  networking->updateAccessToken(nullptr);
  return networking;
}

KXNetworking::KXNetworking(std::optional<std::string> apiToken, std::optional<std::string> hostname)
    : apiToken_(std::move(apiToken)),
      hostname_(std::move(hostname)),
      accessTokenOperationQueue_(std::make_shared<SerialOperationQueue>()) {}

KXNetworking::~KXNetworking() {
  if (const auto queue = accessTokenOperationQueue()) queue->cancelAllOperations();
  if (const auto timer = accessTokenRequestTimer()) timer->invalidate();
}

}  // namespace kx
