#include "tools/fleet/LoadRequests.h"

#include <memory>
#include <stdexcept>
#include <utility>

#include "KXPublisher/transport/KXNetworking.h"
#include "tools/fleet/LoadPlatform.h"

namespace kx::fleet {

namespace {

LoadRequest taken(const char *what) {
  auto request = LoadPlatform::take();
  if (!request) throw std::runtime_error(std::string("the library makes no ") + what + " of this");
  return *std::move(request);
}

LoadRequest loginOf(KXNetworking &networking) {
  networking.accessTokenOperationQueue()->cancelAllOperations();  // the login of its own accord
  networking.getAccessTokenWithCompletionHandler([](const std::optional<std::string> &) {});
  return taken("login");
}

}  // namespace

LoadRequests::LoadRequests(const std::string &hostname, const std::string &apiToken)
    : networking_(KXNetworking::initWithApiToken(apiToken, hostname)), login_(loginOf(*networking_)) {}

LoadRequest LoadRequests::message(const Dictionary &facts, const std::string &accessToken) const {
  networking_->setAccessToken(accessToken);
  networking_->sendData(facts);
  return taken("message");
}

void LoadRequests::setDevice(const std::string &systemName, const std::string &bundleIdentifier) {
  if (!Platform::install(std::make_unique<LoadPlatform>(systemName, bundleIdentifier)))
    throw std::logic_error("the library has a device already");
}

}  // namespace kx::fleet
