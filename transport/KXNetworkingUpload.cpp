#include <utility>

#include "KXPublisher/diagnostics/KXLogError.h"
#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/transport/KXNetworking.h"
#include "diagnostics/Journal.h"
#include "transport/FinishAndInvalidate.h"

namespace kx {

void KXNetworking::sendData(const Dictionary &message) {
  sendData(Dictionary(message));
}

void KXNetworking::sendData(Dictionary &&message) {
  repeatLostAccessTokenRefresh();
  Array messages;
  messages.emplace_back(std::move(message));
  const auto json = jsonForObject(std::move(messages));
  if (!accessToken()) {
    Journal::shared().reportDropped(KXDiagnosis::Drop::noAccessToken);
    return;
  }

  const auto session = Platform::current().urlSessions().sessionWithDefaultConfiguration();
  const FinishAndInvalidate atTheEnd{*session};
  const auto data = json ? std::optional<Data>(Data(json->begin(), json->end())) : std::nullopt;
  // The token is read afresh: one that has arrived since the test above is sent.
  const auto task =
      feedUploadTaskForData(data, hostname(), accessToken(), session,
                            [networking = strong(*this)](const std::shared_ptr<URLResponse> &response,
                                                         const std::optional<Error> &error) {
                              networking->uploadCompleted(response, error);
                            });
  if (task != nullptr) {
    Journal::shared().messageSent();
    task->resume();
  } else {
    Journal::shared().reportDropped(json ? KXDiagnosis::Drop::noRequest : KXDiagnosis::Drop::notSerialisable);
  }
}

void KXNetworking::uploadCompleted(const std::shared_ptr<URLResponse> &response,
                                   const std::optional<Error> &error) {
  if (error) {
    KXLogError("Error sending data: %@", {error->description()});
    KXLogError("Error sending data. HTTP status: %lu", {0});
    Journal::shared().messageFailed(*error);
    return;
  }
  const auto answer = std::dynamic_pointer_cast<HTTPURLResponse>(response);
  const long status = answer == nullptr ? 0 : answer->statusCode();
  Journal::shared().messageAnswered(status);
  if (status >= 200 && status <= 299) return;
  if (status == 403) {
    KXLogError("Error sending data. Calling updateAccessToken:");
    updateAccessToken(nullptr);
    return;
  }
  KXLogError("Error sending data. HTTP status: %lu", {status});
}

}  // namespace kx
