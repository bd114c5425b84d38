#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KXPublisher/platform/RunLoopTimer.h"
#include "KXPublisher/platform/SerialOperationQueue.h"
#include "KXPublisher/platform/URLSession.h"
#include "KXPublisher/platform/foundation/AtomicNumber.h"
#include "KXPublisher/platform/foundation/AtomicProperty.h"
#include "KXPublisher/platform/foundation/Data.h"
#include "KXPublisher/platform/foundation/Object.h"
#include "KXPublisher/platform/foundation/Value.h"
#include "KXPublisher/transport/KXLoginDelays.h"

namespace kx {

/// The client of the collection service. It holds the access token that the service gives in exchange for the
/// API token, and sends each message once. There is one in a process.
///
/// Everything may be called from any thread and returns at once. Failures are logged, never thrown or
/// returned beyond an absent result.
///
/// One class in five files: KXNetworking.cpp (life), KXNetworkingRequests.cpp (URLs, bodies, tasks),
/// KXNetworkingAccessToken.cpp (login and back-off), KXNetworkingUpload.cpp (sending),
/// KXNetworkingAddresses.cpp.
class KX_EXPORT KXNetworking : public Object {
 public:
  using AccessTokenCompletionHandler = std::function<void(std::optional<std::string> accessToken)>;

  /// `sharedInstanceWithApiToken:hostname:`: the one client, made by the first call; later calls ignore their
  /// arguments.
  static std::shared_ptr<KXNetworking> sharedInstanceWithApiToken(const std::optional<std::string> &apiToken,
                                                                  const std::optional<std::string> &hostname);

  /// `initWithApiToken:hostname:`: a client that has just started its first login. Neither argument is
  /// validated; without one of them no login, and so no message, is ever sent.
  static std::shared_ptr<KXNetworking> initWithApiToken(std::optional<std::string> apiToken,
                                                        std::optional<std::string> hostname);

  /// `dealloc`: cancels the pending token refreshes and the retry timer.
  ~KXNetworking() override;

  // ---- Requests. Class operations without state.

  /// `urlForApiPath:hostname:`: "https://%@%@" of the host name, port included, and the path, which gets a
  /// leading slash if it has none. Absent when the path is, or when the platform takes the text for no URL.
  static std::optional<URL> urlForApiPath(const std::optional<std::string> &path,
                                          const std::optional<std::string> &hostname);

  /// `jsonForObject:`: compact JSON in which a slash is a plain slash. Absent when the object cannot be
  /// serialised.
  static std::optional<std::string> jsonForObject(const Value &object);

  /// `apiUploadTaskForPath:hostname:params:session:completionHandler:`: a login request, not yet started. A
  /// null pointer when the path, the params or the session is absent, the URL is refused or the params cannot
  /// be serialised. A body that cannot be compressed is left out.
  static std::shared_ptr<URLSessionUploadTask> apiUploadTaskForPath(
      const std::optional<std::string> &path, const std::optional<std::string> &hostname,
      const std::optional<Dictionary> &params, const std::shared_ptr<URLSession> &session,
      URLSession::CompletionHandler completionHandler);

  /// `feedUploadTaskForData:hostname:accessToken:session:completionHandler:`: a message request with JSON
  /// text as its data, not yet started. A null pointer when the session, the token, the data or the message
  /// path is absent, or the URL is refused. A body that cannot be compressed is left out.
  static std::shared_ptr<URLSessionUploadTask> feedUploadTaskForData(
      const std::optional<Data> &data, const std::optional<std::string> &hostname,
      const std::optional<std::string> &accessToken, const std::shared_ptr<URLSession> &session,
      URLSession::CompletionHandler completionHandler);

  // ---- Access token.

  /// `getAccessTokenWithCompletionHandler:`: sends one login request; the handler receives the token, or
  /// nothing after a failure, which has been logged. It is never called when no request could be built.
  void getAccessTokenWithCompletionHandler(AccessTokenCompletionHandler completionHandler);

  /// `updateAccessToken:`: asks for a new token. Ignored while a login is outstanding or a retry is pending,
  /// and when a token has arrived since this call. The argument, a firing timer, is not read.
  ///
  /// One that is lost for want of memory, or to whatever else the platform throws, is asked for again with
  /// the next message.
  void updateAccessToken(const std::shared_ptr<Object> &sender);

  /// `updateLastAccessTokenRequestTimeInterval`: the next longer delay: 300, 600, 1200, 2400, 3600, 3600 ...
  /// s.
  void updateLastAccessTokenRequestTimeInterval();

  // ---- Messages.

  /// `sendData:`: sends one message, best effort, as the only element of a JSON array. Dropped, without a
  /// line in the log, while there is no access token. Never repeated.
  void sendData(const Dictionary &message);
  /// The same of a message that the caller needs no more: it is not copied.
  void sendData(Dictionary &&message);

  // ---- Addresses.

  /// `getIPAddresses`: the IPv4 addresses of the interfaces whose names begin with "en", "pdp_ip" or "ipsec",
  /// in the system's order.
  static std::vector<std::string> getIPAddresses();

  // ---- Properties.

  std::optional<std::string> apiToken() const { return apiToken_.get(); }
  /// `setApiToken:`
  void setApiToken(std::optional<std::string> apiToken) { apiToken_.set(std::move(apiToken)); }
  std::optional<std::string> hostname() const { return hostname_.get(); }
  /// `setHostname:`
  void setHostname(std::optional<std::string> hostname) { hostname_.set(std::move(hostname)); }
  /// `accessTokenOperationQueue`: the serial queue on which refreshes are decided; without one none is.
  std::shared_ptr<SerialOperationQueue> accessTokenOperationQueue() const {
    return accessTokenOperationQueue_.get();
  }
  /// `setAccessTokenOperationQueue:`
  void setAccessTokenOperationQueue(std::shared_ptr<SerialOperationQueue> accessTokenOperationQueue) {
    accessTokenOperationQueue_.set(std::move(accessTokenOperationQueue));
  }
  /// `accessToken`: absent until a login has succeeded.
  std::optional<std::string> accessToken() const { return accessToken_.get(); }
  /// `setAccessToken:`
  void setAccessToken(std::optional<std::string> accessToken) { accessToken_.set(std::move(accessToken)); }
  /// `accessTokenLastUpdated`: when the token arrived, in seconds since 1970; 0 before that.
  double accessTokenLastUpdated() const { return accessTokenLastUpdated_; }
  /// `setAccessTokenLastUpdated:`
  void setAccessTokenLastUpdated(double accessTokenLastUpdated) {
    accessTokenLastUpdated_ = accessTokenLastUpdated;
  }
  /// `lastAccessTokenRequestTimeInterval`: the delay of the pending retry in seconds; 0 after a success.
  double lastAccessTokenRequestTimeInterval() const { return lastAccessTokenRequestTimeInterval_; }
  /// `setLastAccessTokenRequestTimeInterval:`
  void setLastAccessTokenRequestTimeInterval(double lastAccessTokenRequestTimeInterval) {
    lastAccessTokenRequestTimeInterval_ = lastAccessTokenRequestTimeInterval;
  }
  /// `accessTokenRequestTimer`: the latest retry timer, valid while it waits; a null pointer before the
  /// first.
  std::shared_ptr<RunLoopTimer> accessTokenRequestTimer() const { return accessTokenRequestTimer_.get(); }
  /// `setAccessTokenRequestTimer:`
  void setAccessTokenRequestTimer(std::shared_ptr<RunLoopTimer> accessTokenRequestTimer) {
    accessTokenRequestTimer_.set(std::move(accessTokenRequestTimer));
  }
  /// `accessTokenWaitingResponse`: whether a login is outstanding.
  bool accessTokenWaitingResponse() const { return accessTokenWaitingResponse_; }
  /// `setAccessTokenWaitingResponse:`
  void setAccessTokenWaitingResponse(bool accessTokenWaitingResponse) {
    accessTokenWaitingResponse_ = accessTokenWaitingResponse;
  }

 private:
  KX_HIDDEN KXNetworking(std::optional<std::string> apiToken, std::optional<std::string> hostname);

  /// The body of a login request; absent without an API token or a host name.
  KX_HIDDEN std::optional<Dictionary> loginDocument() const;
  KX_HIDDEN void decideAccessTokenRefresh(double requestTime);
  KX_HIDDEN void loginCompleted(std::optional<std::string> accessToken);
  KX_HIDDEN void accessTokenArrived(std::string accessToken);
  KX_HIDDEN void accessTokenFailed();
  KX_HIDDEN void accessTokenRefreshLost() noexcept;
  KX_HIDDEN void repeatLostAccessTokenRefresh();
  KX_HIDDEN void uploadCompleted(const std::shared_ptr<URLResponse> &response,
                                 const std::optional<Error> &error);

  AtomicProperty<std::optional<std::string>> apiToken_;
  AtomicProperty<std::optional<std::string>> hostname_;
  AtomicProperty<std::shared_ptr<SerialOperationQueue>> accessTokenOperationQueue_;
  AtomicProperty<std::optional<std::string>> accessToken_;
  AtomicProperty<std::shared_ptr<RunLoopTimer>> accessTokenRequestTimer_;

  // Plain numbers, guarded by the order in which they are written: waiting is set before a login starts and
  // cleared only after the token, its time and the delay are stored.
  AtomicNumber<double> accessTokenLastUpdated_{0.0};
  AtomicNumber<double> lastAccessTokenRequestTimeInterval_{0.0};
  AtomicNumber<bool> accessTokenWaitingResponse_{false};

  /// A refresh, or its login, ended in an exception: nothing would ask for another one.
  AtomicNumber<bool> accessTokenRefreshLost_{false};
};

}  // namespace kx
