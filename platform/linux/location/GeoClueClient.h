#pragma once

#include <gio/gio.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "KXPublisher/platform/LocationManager.h"
#include "platform/linux/bus/GLibPointers.h"
#include "platform/linux/threads/OneShotTimer.h"

namespace kx {

/// One client object at GeoClue, from its creation to its deletion. Used on the main thread only; nothing
/// waits for the service.
///
/// The service asks the user's agent whether the host may know the position, and has no answer for as long as
/// there is no agent or the user is thinking. No call that leads to the start has a time limit, therefore: it
/// costs nothing while it is under way, and asking again would ask the user again.
class GeoClueClient : public Object {
 public:
  enum class Refusal {
    denied,    ///< the host is not allowed to know the position
    disabled,  ///< the user has location services switched off
  };

  /// Who is told. The client is over after a refusal or a failure.
  class Listener {
   public:
    virtual ~Listener() = default;
    virtual void clientStarted() = 0;
    virtual void clientRefused(Refusal refusal) = 0;
    /// The service does not do what GeoClue does, or is gone.
    virtual void clientFailed() = 0;
    /// The service has stopped updates by itself, at the user's wish, and has started them again.
    virtual void clientPaused() = 0;
    virtual void clientResumed() = 0;
    virtual void clientFound(const Location &location) = 0;
  };

  /// `owner`: the service's unique name. `listener` is not kept alive. Positions that come faster than
  /// `betweenPositions` are left out, except the last one.
  GeoClueClient(GDBusConnection *connection, std::string owner, GMainContext *mainContext,
                std::chrono::milliseconds betweenPositions, std::weak_ptr<Listener> listener);

  /// Asks for positions, once, on behalf of the application `desktopId`.
  void start(const std::string &desktopId, std::uint32_t distanceThreshold);
  /// In metres.
  void setDistanceThreshold(std::uint32_t distanceThreshold);
  /// Has the service delete the client. The listener is told nothing any more.
  void end();

  static constexpr const char *serviceName = "org.freedesktop.GeoClue2";

 private:
  /// Receives what a method has returned, or the error.
  using Reply = void (GeoClueClient::*)(GVariant *value, const GError *error);
  struct Call;

  void call(const std::string &path, const char *interface, const char *method, GVariant *parameters,
            const char *replyType, Reply reply, int millisecondsForReply = G_MAXINT);
  void set(const char *property, GVariant *value);
  void subscribe();
  void deleteAtService();

  void whenCreated(GVariant *value, const GError *error);
  void whenStarted(GVariant *value, const GError *error);
  void whenFetched(GVariant *value, const GError *error);
  void locationUpdated(GVariant *parameters);
  void propertiesChanged(GVariant *parameters);
  void fetchNewest();

  template <void (GeoClueClient::*handle)(GVariant *parameters)>
  guint subscribeTo(const char *interface, const char *signal, const char *firstArgument);

  const GLibPointer<GDBusConnection> connection_;
  const std::string owner_;
  const std::chrono::milliseconds betweenPositions_;
  const std::weak_ptr<Listener> listener_;

  std::string desktopId_;
  std::uint32_t distanceThreshold_ = 0;
  bool ended_ = false;
  std::string path_;  ///< empty until the client has been created
  guint locationUpdates_ = 0;
  guint propertyChanges_ = 0;
  bool started_ = false;
  bool paused_ = false;

  std::string newestLocation_;  ///< the path of the location object that has not been fetched; or empty
  bool fetching_ = false;
  std::int64_t fetchedAt_ = 0;  ///< when the last one was; microseconds of the monotonic clock
  OneShotTimer nextFetch_;
};

}  // namespace kx
