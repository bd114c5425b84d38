#pragma once

#include <string>
#include <vector>

namespace kx::fleet {

/// A service that load is made for: one that its user owns, or it is none of ours.
struct LoadService {
  /// An address that its name stands for, as it was when the load began.
  struct Address {
    std::string text;  ///< "127.0.0.1", "::1"
    bool isLoopback;
  };

  std::string hostname;  ///< with its port, if it has one of its own
  std::string host;      ///< a name, or an address without brackets
  std::string port;
  std::vector<Address> addresses;

  /// Of "https://host" or "https://host:port", and nothing behind it; looks its name up. Throws
  /// `ScenarioError` for another URL, `std::runtime_error` for a name that is none.
  static LoadService of(const std::string &url);

  bool isOnLoopback() const;
};

/// Throws `ScenarioError` unless load may be made for that service: on loopback it may, elsewhere where its
/// host is among those that the user has named once more.
void requirePermission(const LoadService &service, const std::vector<std::string> &reallyLoaded);

}  // namespace kx::fleet
