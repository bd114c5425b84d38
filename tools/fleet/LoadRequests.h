#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "KXPublisher/platform/URLSession.h"
#include "KXPublisher/platform/foundation/Value.h"

namespace kx {
class KXNetworking;
}

namespace kx::fleet {

/// A request as the library hands it to its device.
struct LoadRequest {
  URLRequest head;
  std::optional<Data> body;
};

/// The requests that the library makes for one service, by the library's own code: it is given a device that
/// keeps what it is to send. Made and used on one thread.
class LoadRequests {
 public:
  /// `hostname` with its port, as a host gives it to the library.
  /// Throws `std::runtime_error` where the library makes no request of them.
  LoadRequests(const std::string &hostname, const std::string &apiToken);

  const LoadRequest &login() const { return login_; }
  LoadRequest message(const Dictionary &facts, const std::string &accessToken) const;

  /// What the device is to the library, in the whole process: to be called once, before the first of them.
  static void setDevice(const std::string &systemName, const std::string &bundleIdentifier);

 private:
  std::shared_ptr<KXNetworking> networking_;
  LoadRequest login_;
};

}  // namespace kx::fleet
