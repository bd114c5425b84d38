#pragma once

#include <memory>
#include <optional>
#include <string>

#include "KXPublisher/platform/DispatchQueue.h"
#include "KXPublisher/platform/URLSession.h"
#include "platform/linux/https/CurlSettings.h"

namespace kx {

class CurlTransport;

/// URL sessions on libcurl. Completion handlers run one after the other on the transport's thread, and should
/// be short; those of requests that cannot even be begun, on the default-priority global queue.
///
/// Nothing of curl or TLS is initialised, and no file is read, before the first request runs, and then on the
/// transport's own thread. That thread lives while requests are in flight and some seconds longer, and
/// the connections and the looked-up names with it; TLS sessions are kept for the next one.
///
/// However many requests come at once, four run at a time and the others wait; see `CurlTransport`.
///
/// A request is written to the wire once, unless a redirect asks for more, or it went out on a connection of
/// an earlier request that turns out to have been closed before a line of the answer was there: then curl
/// sends it again on a new one, as browsers do.
///
/// When the process ends, requests on their way are dropped without a call of their handlers; see
/// `CurlProcess`. A child of `fork` that does not call `exec` sends nothing; see `ForkedChild`.
class CurlURLSessionService : public URLSessionService {
 public:
  /// `certificateAuthorityFile`: a PEM file of certificate authorities to trust beside the system's. When it
  /// cannot be read, every request fails.
  CurlURLSessionService(Dispatch &dispatch, std::optional<std::string> certificateAuthorityFile);
  CurlURLSessionService(Dispatch &dispatch, CurlSettings settings);

  /// Takes what curl would send to: "https://", a host, and ASCII without blanks, at most 8 KiB. User names
  /// are refused, since curl would send them as credentials.
  std::optional<URL> URLWithString(const std::string &text) override;
  std::shared_ptr<URLSession> sessionWithDefaultConfiguration() override;

 private:
  class Session;
  class Task;

  Dispatch &dispatch_;
  const std::shared_ptr<CurlTransport> transport_;
};

}  // namespace kx
