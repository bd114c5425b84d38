#include <utility>

#include "KXPublisher/diagnostics/KXLogError.h"
#include "KXPublisher/platform/Bundle.h"
#include "KXPublisher/platform/Clock.h"
#include "KXPublisher/platform/Device.h"
#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/platform/RunLoop.h"
#include "KXPublisher/platform/foundation/Selector.h"
#include "KXPublisher/platform/foundation/StringFormat.h"
#include "KXPublisher/transport/KXNetworking.h"
#include "diagnostics/Journal.h"
#include "platform/EndedException.h"
#include "transport/FinishAndInvalidate.h"
#include "transport/KXServicePaths.h"

namespace kx {

using namespace constants;

namespace {

/// What a login's answer amounts to: the token, or nothing, with its line in the log.
std::optional<std::string> accessTokenFrom(const std::shared_ptr<URLResponse> &response,
                                           const std::optional<Error> &error) {
  if (error) {
    KXLogError("Error getting access token: %@", {error->description()});
    Journal::shared().loginFailed(*error);
    return std::nullopt;
  }
  const auto answer = std::dynamic_pointer_cast<HTTPURLResponse>(response);
  if (answer == nullptr) {
    Journal::shared().loginRefused(0);
    return std::nullopt;
  }
  const long status = answer->statusCode();
  if (status < 200 || status > 299) {
    KXLogError("Error getting token. HTTP status: %lu", {status});
    Journal::shared().loginRefused(status);
    return std::nullopt;
  }
  const auto &fields = answer->allHeaderFields();
  const auto token = fields.find("set-authorization");
  if (token != fields.end()) return token->second;
  Dictionary headers;
  for (const auto &[name, value] : fields) headers.set(name, value);
  KXLogError("getAccessToken received success status code %lu, but no access token found. Headers: %@",
             {status, headers});
  Journal::shared().loginWithoutToken(status);
  return std::nullopt;
}

/// An answer that there is no memory to read is one without a token.
std::optional<std::string> tokenOrNothing(const std::shared_ptr<URLResponse> &response,
                                          const std::optional<Error> &error) noexcept {
  try {
    return accessTokenFrom(response, error);
  } catch (...) {
    reportEndedException();
    return std::nullopt;
  }
}

}  // namespace

std::optional<Dictionary> KXNetworking::loginDocument() const {
  const auto apiToken = this->apiToken();
  const auto hostname = this->hostname();
  if (!apiToken || !hostname) return std::nullopt;

  Platform &platform = Platform::current();
  const auto device = platform.devices().currentDevice();
  const auto systemName = device == nullptr ? std::nullopt : device->systemName();
  const auto bundle = platform.bundles().mainBundle();
  const auto bundleIdentifier = bundle == nullptr ? std::nullopt : bundle->bundleIdentifier();
  const std::string name = stringWithFormat(
      "%@.%@", {systemName.value_or(std::string()), bundleIdentifier.value_or(std::string())});
  return Dictionary{
      {"header", Dictionary{{"typ", "JWT"}, {"alg", "HS256"}}},
      {"payload",
       Dictionary{{"aud", Array{*hostname}}, {"iss", *hostname}, {"sub", *apiToken}, {"name", name}}}};
}

void KXNetworking::getAccessTokenWithCompletionHandler(AccessTokenCompletionHandler completionHandler) {
  const auto document = loginDocument();
  const auto session = Platform::current().urlSessions().sessionWithDefaultConfiguration();
  const FinishAndInvalidate atTheEnd{*session};
  const auto task = apiUploadTaskForPath(
      apiPathGetToken(), hostname(), document, session,
      [completionHandler = std::move(completionHandler)](const std::shared_ptr<URLResponse> &response,
                                                         const std::optional<Error> &error) {
        completionHandler(tokenOrNothing(response, error));
      });
  if (task != nullptr) {
    Journal::shared().loginStarted();
    task->resume();
  } else {
    Journal::shared().loginImpossible();
  }
}

void KXNetworking::updateAccessToken(const std::shared_ptr<Object> &sender) {
  if (sender != nullptr) Journal::shared().retryFired();
  try {
    // The time of the call, not of the decision: a token that arrives in between makes this request stale.
    const double requestTime = Platform::current().clock().timeIntervalSince1970();
    WorkItem decision = [networking = strong(*this), requestTime] {
      networking->decideAccessTokenRefresh(requestTime);
    };
    const auto queue = accessTokenOperationQueue();
    if (queue == nullptr) return;
    queue->cancelAllOperations();
    queue->addOperation(std::move(decision));
  } catch (...) {
    accessTokenRefreshLost();
  }
}

void KXNetworking::decideAccessTokenRefresh(double requestTime) {
  if (accessTokenWaitingResponse_) return;
  const auto retry = accessTokenRequestTimer();
  if (retry != nullptr && retry->isValid()) return;
  if (requestTime < accessTokenLastUpdated_) return;

  accessTokenWaitingResponse_ = true;
  try {
    // If no request can be built, nothing resets the flag: no later refresh will be able to build one either.
    getAccessTokenWithCompletionHandler([networking = strong(*this)](std::optional<std::string> accessToken) {
      networking->loginCompleted(std::move(accessToken));
    });
  } catch (...) {
    accessTokenRefreshLost();
    accessTokenWaitingResponse_ = false;
  }
}

void KXNetworking::loginCompleted(std::optional<std::string> accessToken) {
  try {
    if (accessToken) {
      accessTokenArrived(*std::move(accessToken));
    } else {
      accessTokenFailed();
    }
  } catch (...) {
    accessTokenRefreshLost();
  }
  accessTokenWaitingResponse_ = false;
}

void KXNetworking::accessTokenArrived(std::string accessToken) {
  accessToken_.set(std::move(accessToken));
  accessTokenLastUpdated_ = Platform::current().clock().timeIntervalSince1970();
  lastAccessTokenRequestTimeInterval_ = 0.0;
  Journal::shared().tokenReceived();
  if (const auto retry = accessTokenRequestTimer()) retry->invalidate();
}

void KXNetworking::accessTokenFailed() {
  updateLastAccessTokenRequestTimeInterval();
  if (const auto retry = accessTokenRequestTimer()) retry->invalidate();
  RunLoopService &runLoops = Platform::current().runLoops();
  const auto retry = runLoops.timerWithTimeInterval(
      lastAccessTokenRequestTimeInterval_, strong(*this),
      Selector::of<&KXNetworking::updateAccessToken>("updateAccessToken:"), /*repeats=*/false);
  accessTokenRequestTimer_.set(retry);
  try {
    runLoops.mainRunLoop()->addTimer(retry, RunLoopMode::commonModes);
  } catch (...) {
    retry->invalidate();  // one that never fires would be waited for
    throw;
  }
  Journal::shared().retryScheduled(lastAccessTokenRequestTimeInterval_);
}

/// To be called where an exception is handled.
void KXNetworking::accessTokenRefreshLost() noexcept {
  accessTokenRefreshLost_ = true;
  reportEndedException();
}

void KXNetworking::repeatLostAccessTokenRefresh() {
  if (!accessTokenRefreshLost_) return;
  accessTokenRefreshLost_ = false;
  updateAccessToken(nullptr);
}

void KXNetworking::updateLastAccessTokenRequestTimeInterval() {
  lastAccessTokenRequestTimeInterval_ =
      accessTokenRequestTimeIntervalAfter(lastAccessTokenRequestTimeInterval_);
}

}  // namespace kx
