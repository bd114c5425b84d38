#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/linux/https/CurlProxy.h"

namespace kx {

/// What the URL sessions go by. The defaults are the platform's; tests shorten the times.
struct CurlSettings {
  /// A PEM file of certificate authorities to trust beside the system's.
  std::optional<std::string> certificateAuthorityFile;
  /// Where systems keep their certificate authorities under the hashes of their names.
  std::string certificateDirectory = "/etc/ssl/certs";
  /// The system's certificate authorities in one PEM file; absent for the one that curl was built for.
  std::optional<std::string> certificateBundle;
  CurlProxy proxy = CurlProxy::ofProcess();
  /// Asked when a request is begun, on the thread that does so, for something to hold until it has ended;
  /// none where there is nothing to hold.
  std::function<std::shared_ptr<void>()> heldByRequest;

  /// For so long nothing may arrive or leave, from the start of a request on.
  std::chrono::milliseconds timeoutWithoutProgress = std::chrono::seconds(60);
  /// So long a request takes at the most, whatever progress it makes: as long as on iOS.
  std::chrono::milliseconds timeoutForResource = std::chrono::hours(7 * 24);
  /// For so long the body of an answer may go on after its header.
  std::chrono::milliseconds bodyTime = std::chrono::seconds(5);
  /// For so long the thread and its connections outlive the last request. The first message goes out five
  /// seconds after the login, and several reports can come together when the host changes sides; after that
  /// there is nothing to wait for.
  std::chrono::milliseconds linger = std::chrono::seconds(6);
  /// How many requests run at a time, each on a connection of its own if they go to one host. iOS allows a
  /// host as many.
  static constexpr std::size_t maximumInFlight = 4;
  /// With those that are kept for the next request.
  static constexpr long maximumConnections = 8;
  /// How many requests wait for their turn at the most; those that come then fail. More than a host makes in
  /// a burst, and no more than some 40 MB.
  std::size_t maximumWaiting = 16'384;
  std::size_t threadStackSize = std::size_t{512} * 1024;  ///< bytes
};

}  // namespace kx
