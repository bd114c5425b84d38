#pragma once

#include <gio/gio.h>

#include <memory>
#include <string>

#include "tests/support/ChildProcess.h"

namespace kx {

/// A message bus of the test's own that stands in for the system's, for this process and the programs that it
/// starts from then on: anybody may own any name on it. It ends with the test.
class PrivateBus {
 public:
  /// Starts it; to be made before a second thread is started, since it sets an environment variable.
  PrivateBus();

  const std::string &address() const { return address_; }
  /// The process that it is, while it runs.
  pid_t process() const { return daemon_->process(); }

  /// A new connection to it, for a stand-in service. What arrives is dispatched by the context that was the
  /// calling thread's default when an object was exported or a signal subscribed to.
  std::shared_ptr<GDBusConnection> connect() const;

  /// Ends the bus, and all connections to it.
  void stop();
  /// Starts another one at the same address.
  void start();

 private:
  const TemporaryDirectory directory_;
  const std::string address_;
  std::unique_ptr<ChildProcess> daemon_;
};

}  // namespace kx
