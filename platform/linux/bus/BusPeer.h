#pragma once

#include <gio/gio.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/linux/bus/BusProperties.h"
#include "platform/linux/bus/GLibPointers.h"

namespace kx {

/// One run of a service on the bus, by its unique name there: the next run is another peer, and nothing that
/// this one says is ever taken for that one's. To be used on the main thread only, on which it tells all that
/// it tells, never from within a call. Nothing waits.
class BusPeer {
 public:
  /// Receives what a method has returned; or null, and the error.
  using Reply = std::function<void(GVariant *value, const GError *error)>;
  /// Receives a signal's parameters: of any type, for the service decides.
  using Signal = std::function<void(GVariant *parameters)>;

  static constexpr const char *propertiesInterface = "org.freedesktop.DBus.Properties";
  static constexpr int noTimeLimit = G_MAXINT;  // milliseconds

  BusPeer(GDBusConnection *connection, std::string owner, GMainContext *mainContext);
  /// Nothing is told any more.
  ~BusPeer();
  BusPeer(const BusPeer &) = delete;
  BusPeer &operator=(const BusPeer &) = delete;

  /// Calls a method. `parameters`: a tuple, of which it takes a floating reference; or null for none.
  /// `reply` is called once: with the value if that is of `replyType`; else, after `millisecondsForReply`
  /// too, with an error. Null when nobody wants to know, and then the call goes out even if the peer object
  /// does. A service that does not run is not started.
  void call(const std::string &path, const char *interface, const char *method, GVariant *parameters,
            const char *replyType, Reply reply, int millisecondsForReply = noTimeLimit) const;

  /// Has `handler` called at each such signal of the service's. Null for any `path`, and for any first
  /// argument.
  void subscribe(const char *interface, const char *signal, const char *path, const char *firstArgument,
                 Signal handler);

  /// Has `handler` called when some of these properties of an object's have changed, any object's when `path`
  /// is null, with the parameters of `PropertiesChanged`, of type (sa{sv}as). Changes of other properties do
  /// not wake the main thread.
  void followProperties(const BusProperties &properties, const char *path, Signal handler);

  /// Ends all of these.
  void unsubscribe();

 private:
  const GLibPointer<GDBusConnection> connection_;
  const std::string owner_;
  GMainContext *const mainContext_;
  const GLibPointer<GCancellable> calls_;
  std::vector<guint> subscriptions_;
  std::vector<guint> filters_;
};

}  // namespace kx
