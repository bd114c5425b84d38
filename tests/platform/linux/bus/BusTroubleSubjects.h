#pragma once

#include <gio/gio.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/bus/Portal.h"
#include "platform/linux/bus/SessionBus.h"
#include "platform/linux/bus/SystemBus.h"
#include "platform/linux/location/LinuxLocationService.h"
#include "platform/linux/network/NetworkManagerClient.h"
#include "platform/linux/network/PortalNetworkMonitor.h"
#include "platform/linux/telephony/LinuxTelephony.h"
#include "tests/support/FakeService.h"

namespace kx::trouble {

constexpr const char *propertiesInterface = BusPeer::propertiesInterface;

/// An adapter, and the service that it needs.
class Subject {
 public:
  struct Signal {
    const char *path, *interface, *name;
  };

  virtual ~Subject() = default;
  virtual const char *serviceName() const = 0;
  /// What it calls, in the order in which it does.
  virtual std::vector<const char *> methods() const = 0;
  /// What it listens to once it is right.
  virtual std::vector<Signal> signals() const = 0;
  /// Has the service answer as it should.
  virtual void serve(FakeService &service) const = 0;
  virtual void begin(const std::shared_ptr<LinuxRunLoop> &loop) = 0;
  /// Has the service tell by itself what is still missing.
  virtual void prod(FakeService & /*service*/) {}
  /// Whether the facts are those that the service tells.
  virtual bool isRight() const = 0;
};

class TelephonySubject : public Subject {
 public:
  const char *serviceName() const override { return "org.freedesktop.ModemManager1"; }
  std::vector<const char *> methods() const override { return {"GetManagedObjects", "Get"}; }
  std::vector<Signal> signals() const override {
    constexpr const char *root = "/org/freedesktop/ModemManager1";
    constexpr const char *manager = "org.freedesktop.DBus.ObjectManager";
    return {{root, manager, "InterfacesAdded"},
            {root, manager, "InterfacesRemoved"},
            {"/org/freedesktop/ModemManager1/Modem/0", propertiesInterface, "PropertiesChanged"}};
  }
  void serve(FakeService &service) const override {
    service.answer("GetManagedObjects",
                   "({objectpath '/org/freedesktop/ModemManager1/Modem/0': "
                   "{'org.freedesktop.ModemManager1.Modem': {'Sim': <objectpath '/sim'>, 'State': <8>, "
                   "'AccessTechnologies': <uint32 16384>}}},)");
    service.answer("Get", "(<'26201'>,)");
  }
  void begin(const std::shared_ptr<LinuxRunLoop> &loop) override {
    ModemManagerClient::Intervals intervals;
    intervals.toGatherChanges = 10;
    intervals.toAnswer = 100;
    intervals.betweenAttempts = 100;
    telephony_ = std::make_unique<LinuxTelephony>(loop, std::make_shared<SystemBus>(loop, 1U), intervals);
    networkInfo_ = telephony_->makeTelephonyNetworkInfo();
  }
  bool isRight() const override {
    const auto carrier = networkInfo_->subscriberCellularProvider();
    return carrier != nullptr && carrier->mobileNetworkCode() == "01" &&
           networkInfo_->currentRadioAccessTechnology() == "CTRadioAccessTechnologyLTE";
  }

 private:
  std::unique_ptr<LinuxTelephony> telephony_;
  std::shared_ptr<TelephonyNetworkInfo> networkInfo_;
};

/// What the location's adapters have in common: a delegate that does as the location provider does.
class LocationSubject : public Subject, public LocationManagerDelegate {
 public:
  void prod(FakeService &service) override {
    if (service_->authorizationStatus() != AuthorizationStatus::authorizedWhenInUse) {
      grant(service);
    } else if (!isFound_) {
      move(service);
    }
  }
  bool isRight() const override { return isFound_; }
  void locationManager(LocationManager &manager, AuthorizationStatus /*status*/) override {
    isFound_ = false;
    manager.startUpdatingLocation();
  }
  void locationManager(LocationManager & /*manager*/, const std::vector<Location> &locations) override {
    isFound_ = locations.back().coordinate.latitude == 52.5;
  }
  void locationManagerDidPauseLocationUpdates(LocationManager & /*manager*/) override {}
  void locationManagerDidResumeLocationUpdates(LocationManager & /*manager*/) override {}

 protected:
  void beginWith(const std::shared_ptr<LinuxRunLoop> &loop, const std::shared_ptr<MessageBus> &bus,
                 const LocationBackend &backend) {
    using std::chrono::milliseconds;
    service_ = std::make_unique<LinuxLocationService>(
        loop, bus, "org.example.Host", nullptr,
        GeoClueTimes{milliseconds(50), milliseconds(50), milliseconds(1)}, backend);
    manager_ = service_->makeLocationManager();
    delegate_.reset(this, [](LocationManagerDelegate *) {});
    manager_->setDelegate(delegate_);
    manager_->startUpdatingLocation();
  }
  /// Says that the host is allowed to know, if that is still to be said.
  virtual void grant(FakeService & /*service*/) {}
  virtual void move(FakeService &service) = 0;

 private:
  std::unique_ptr<LinuxLocationService> service_;
  std::shared_ptr<LocationManager> manager_;
  std::shared_ptr<LocationManagerDelegate> delegate_;
  bool isFound_ = false;
};

constexpr const char *position =
    "{'Latitude': <52.5>, 'Longitude': <13.4>, 'Accuracy': <5.0>, 'Altitude': <34.0>}";

class GeoClueSubject : public LocationSubject {
 public:
  const char *serviceName() const override { return "org.freedesktop.GeoClue2"; }
  std::vector<const char *> methods() const override { return {"CreateClient", "Set", "Start", "GetAll"}; }
  std::vector<Signal> signals() const override {
    return {{client, clientInterface, "LocationUpdated"}, {client, propertiesInterface, "PropertiesChanged"}};
  }
  void serve(FakeService &service) const override {
    service.answer("CreateClient", std::string("(objectpath '") + client + "',)");
    service.answer("GetAll", std::string("(") + position + ",)");
  }
  void begin(const std::shared_ptr<LinuxRunLoop> &loop) override {
    beginWith(loop, std::make_shared<SystemBus>(loop, 1U), LocationBackend::geoClue);
  }

 private:
  static constexpr const char *client = "/org/freedesktop/GeoClue2/Client/1";
  static constexpr const char *clientInterface = "org.freedesktop.GeoClue2.Client";

  void move(FakeService &service) override {
    service.emit(client, clientInterface, "LocationUpdated", "(objectpath '/', objectpath '/location')");
  }
};

class PortalLocationSubject : public LocationSubject {
 public:
  const char *serviceName() const override { return portal::serviceName; }
  std::vector<const char *> methods() const override { return {"CreateSession", "Start"}; }
  std::vector<Signal> signals() const override {
    return {{portal::path, locationInterface, "LocationUpdated"},
            {session, "org.freedesktop.portal.Session", "Closed"}};
  }
  void serve(FakeService &service) const override {
    service.answer("CreateSession", std::string("(objectpath '") + session + "',)");
    service.answer("Start", [this](GDBusMessage *call) {
      std::string sender = g_dbus_message_get_sender(call);
      for (char &character : sender) character = character == '.' ? '_' : character;
      GVariant *const options = g_variant_get_child_value(g_dbus_message_get_body(call), 2);
      const char *token = "";
      g_variant_lookup(options, "handle_token", "&s", &token);
      const std::lock_guard<std::mutex> lock(mutex_);
      request_ = std::string(portal::path) + "/request/" + sender.substr(1) + "/" + token;
      g_variant_unref(options);
      return g_variant_new("(o)", request_.c_str());
    });
  }
  void begin(const std::shared_ptr<LinuxRunLoop> &loop) override {
    beginWith(loop, std::make_shared<SessionBus>(loop, 1U), LocationBackend::portal);
  }

 private:
  static constexpr const char *session = "/org/freedesktop/portal/desktop/session/1/kx";
  static constexpr const char *locationInterface = "org.freedesktop.portal.Location";

  void grant(FakeService &service) override {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (request_.empty()) return;
    service.emit(request_, "org.freedesktop.portal.Request", "Response", "(uint32 0, @a{sv} {})");
  }
  void move(FakeService &service) override {
    service.emit(portal::path, locationInterface, "LocationUpdated",
                 std::string("(objectpath '") + session + "', " + position + ")");
  }

  mutable std::mutex mutex_;
  mutable std::string request_;
};

class NetworkManagerSubject : public Subject {
 public:
  const char *serviceName() const override { return "org.freedesktop.NetworkManager"; }
  std::vector<const char *> methods() const override { return {"Get"}; }
  std::vector<Signal> signals() const override {
    return {{"/org/freedesktop/NetworkManager", propertiesInterface, "PropertiesChanged"}};
  }
  void serve(FakeService &service) const override { service.answer("Get", "(<'gsm'>,)"); }
  void begin(const std::shared_ptr<LinuxRunLoop> &loop) override {
    client_ = std::make_shared<NetworkManagerClient>(loop, std::make_shared<SystemBus>(loop, 1U));
    client_->addWatch(NetworkWatch::deaf([] {}));
  }
  bool isRight() const override { return client_->bearer() == NetworkManagerClient::Bearer::cellular; }

 private:
  std::shared_ptr<NetworkManagerClient> client_;
};

class PortalNetworkSubject : public Subject {
 public:
  const char *serviceName() const override { return portal::serviceName; }
  std::vector<const char *> methods() const override { return {"GetStatus"}; }
  std::vector<Signal> signals() const override {
    return {{portal::path, "org.freedesktop.portal.NetworkMonitor", "changed"}};
  }
  void serve(FakeService &service) const override {
    service.answer("GetStatus", "({'available': <true>, 'metered': <false>, 'connectivity': <uint32 4>},)");
  }
  void begin(const std::shared_ptr<LinuxRunLoop> &loop) override {
    monitor_ = std::make_shared<PortalNetworkMonitor>(loop, std::make_shared<SessionBus>(loop, 1U));
    monitor_->addWatch(NetworkWatch::deaf([] {}));
  }
  bool isRight() const override {
    return monitor_->availability() == PortalNetworkMonitor::Availability::available;
  }

 private:
  std::shared_ptr<PortalNetworkMonitor> monitor_;
};

}  // namespace kx::trouble
