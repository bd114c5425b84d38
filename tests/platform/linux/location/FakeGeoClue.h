#pragma once

#include <gio/gio.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/PrivateBus.h"

namespace kx {

/// A GeoClue that does what the test says, also what a real one never should. It is served by the default
/// main context.
class FakeGeoClue {
 public:
  explicit FakeGeoClue(const PrivateBus &bus);
  ~FakeGeoClue() { vanish(); }
  FakeGeoClue(const FakeGeoClue &) = delete;
  FakeGeoClue &operator=(const FakeGeoClue &) = delete;

  /// Comes on the bus, and goes away; everything that it had is lost then.
  void appear();
  void vanish();

  /// What a method answers, from its name: a tuple, or null for the ordinary answer.
  std::function<GVariant *(const std::string &method)> answer = [](const std::string &) { return nullptr; };
  /// The error that a method answers, its name and its text; empty for none.
  std::map<std::string, std::pair<std::string, std::string>> errors;
  /// The methods that get no answer until `answerWaiting`.
  std::map<std::string, bool> silent;
  void answerWaiting();
  std::size_t waiting() const { return waiting_.size(); }

  struct Client {
    std::string desktopId;
    guint32 distanceThreshold = 0;
    guint32 accuracyLevel = 0;
    bool active = false;
  };
  /// The clients that there are, and how often methods were called.
  std::map<std::string, Client> clients;
  std::map<std::string, int> calls;

  /// The only client that there is; fails without one.
  Client &client();
  /// Tells it of a new position. `properties`: of the location object, a{sv}.
  void moveTo(GVariant *properties);
  void moveTo(double latitude, double longitude, double accuracy = 5, double altitude = 34);
  /// Changes its property Active, as the service does by itself.
  void setActive(bool active);
  void sendPropertiesChanged(GVariant *parameters);
  void sendLocationUpdated(GVariant *parameters);

  static GVariant *properties(double latitude, double longitude, double accuracy, double altitude);

 private:
  struct Release {
    void operator()(GVariant *value) const { g_variant_unref(value); }
    void operator()(GDBusMethodInvocation *invocation) const { g_object_unref(invocation); }
  };

  static void whenCalled(GDBusConnection *connection, const gchar *sender, const gchar *path,
                         const gchar *interface, const gchar *method, GVariant *parameters,
                         GDBusMethodInvocation *invocation, gpointer fake);
  GVariant *ordinaryAnswer(GDBusMethodInvocation *invocation);
  void setProperty(const std::string &path, GVariant *parameters);
  void reply(GDBusMethodInvocation *invocation);
  guint exportAt(const std::string &path, const char *interface);
  const std::string &clientPath();

  const PrivateBus &bus_;
  const std::shared_ptr<GDBusNodeInfo> interfaces_;
  std::shared_ptr<GDBusConnection> connection_;
  std::map<std::string, std::unique_ptr<GVariant, Release>> locations_;
  std::vector<std::pair<std::string, guint>> locationObjects_;
  std::vector<std::unique_ptr<GDBusMethodInvocation, Release>> waiting_;
  int lastClient_ = 0;
  int lastLocation_ = 0;
};

}  // namespace kx
