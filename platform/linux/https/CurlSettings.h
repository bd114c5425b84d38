#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

namespace kx {

/// What the URL sessions go by. The defaults are the platform's; tests shorten the times.
struct CurlSettings {
  /// A PEM file of certificate authorities to trust beside the system's.
  std::optional<std::string> certificateAuthorityFile;
  /// Where systems keep their certificate authorities under the hashes of their names.
  std::string certificateDirectory = "/etc/ssl/certs";

  /// For so long nothing may arrive or leave, from the start of a request on.
  std::chrono::milliseconds timeoutWithoutProgress = std::chrono::seconds(60);
  /// For so long the body of an answer may go on after its header.
  std::chrono::milliseconds bodyTime = std::chrono::seconds(5);
  /// For so long the thread and its connections outlive the last request. The first message goes out five
  /// seconds after the login, and several reports can come together when the host changes sides; after that
  /// there is nothing to wait for.
  std::chrono::milliseconds linger = std::chrono::seconds(6);
  std::size_t threadStackSize = std::size_t{512} * 1024;  ///< bytes
};

}  // namespace kx
