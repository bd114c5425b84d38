#pragma once

#include <gio/gio.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "tests/support/PrivateBus.h"

namespace kx {

/// Stands in for NetworkManager on a bus, from its making to its end: it answers who asks for its
/// primary connection's type, on a thread of its own.
class StandInNetworkManager {
 public:
  /// `type`: the primary connection's.
  StandInNetworkManager(const PrivateBus &bus, const std::string &type);
  /// `answer`: what it answers with, a tuple of the type in a variant if it is to make sense. Takes a
  /// floating reference; null for one that never answers.
  StandInNetworkManager(const PrivateBus &bus, GVariant *answer);
  /// It leaves the bus.
  ~StandInNetworkManager();
  StandInNetworkManager(const StandInNetworkManager &) = delete;
  StandInNetworkManager &operator=(const StandInNetworkManager &) = delete;

  /// Tells everybody that the type has changed to `type`, of which it takes a floating reference.
  void changeType(GVariant *type);

  /// How often it has been asked.
  int asked() const { return asked_; }

 private:
  static GDBusMessage *filter(GDBusConnection *connection, GDBusMessage *message, gboolean isIncoming,
                              gpointer data);

  const std::shared_ptr<GDBusConnection> connection_;
  const std::shared_ptr<GVariant> answer_;
  std::atomic<int> asked_{0};
  guint filter_ = 0;
};

}  // namespace kx
