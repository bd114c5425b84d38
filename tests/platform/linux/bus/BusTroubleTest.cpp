#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
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
#include "tests/platform/linux/MainLoop.h"
#include "tests/support/FakeService.h"

// Each adapter against a service that does all that a service should not, at each thing that it is asked and
// at each thing that it tells: nothing is printed, nothing stays behind, and when the service has come to its
// senses the facts are right.

namespace kx {
namespace {

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

// ---- What a service may do

struct Body {
  const char *what;
  GVariant *(*make)();
};

template <int count>
GVariant *hugeDictionary() {
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE_VARDICT);
  for (int i = 0; i < count; ++i) {
    g_variant_builder_add(&builder, "{sv}", std::to_string(i).c_str(), g_variant_new_int32(i));
  }
  return g_variant_new("(a{sv})", &builder);
}

const Body bodies[] = {
    {"nothing", [] { return g_variant_new("()"); }},
    {"a number", [] { return g_variant_new("(u)", 7U); }},
    {"a text", [] { return g_variant_new("(s)", "text"); }},
    {"a path to nowhere", [] { return g_variant_new("(o)", "/nowhere"); }},
    {"the root's path", [] { return g_variant_new("(o)", "/"); }},
    {"two paths", [] { return g_variant_new("(oo)", "/", "/nowhere"); }},
    {"a variant of another type", [] { return g_variant_new("(v)", g_variant_new_double(1)); }},
    {"an empty text in a variant", [] { return g_variant_new("(v)", g_variant_new_string("")); }},
    {"empty properties", [] { return g_variant_new_parsed("(@a{sv} {},)"); }},
    {"properties of other types",
     [] { return g_variant_new_parsed("({'Latitude': <'north'>, 'available': <7>, 'Sim': <true>},)"); }},
    {"no objects", [] { return g_variant_new_parsed("(@a{oa{sa{sv}}} {},)"); }},
    {"a change of everything to another type",
     [] {
       return g_variant_new_parsed(
           "('org.freedesktop.ModemManager1.Modem', {'Sim': <1>, 'State': <'x'>, 'Active': <'x'>, "
           "'PrimaryConnectionType': <1>}, ['AccessTechnologies'])");
     }},
    {"numbers beyond all bounds",
     [] {
       return g_variant_new_parsed(
           "({'Latitude': <1e308>, 'Longitude': <-1e308>, 'Accuracy': <-1.0>, 'Altitude': <1e308>},)");
     }},
    {"a text of a megabyte", [] { return g_variant_new("(s)", std::string(1U << 20U, 'x').c_str()); }},
    {"properties without end", [] { return hugeDictionary<20000>(); }},
};

struct Adapter {
  const char *name;
  std::unique_ptr<Subject> (*make)();
};

class BusTroubleTest : public testing::TestWithParam<Adapter> {
 protected:
  BusTroubleTest() {
    setenv("DBUS_SESSION_BUS_ADDRESS", bus.address().c_str(), 1);
    // What GLib is not to be called with ends the test.
    g_log_set_always_fatal(static_cast<GLogLevelFlags>(G_LOG_FATAL_MASK | G_LOG_LEVEL_CRITICAL));
  }

  static std::ptrdiff_t openDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                         std::filesystem::directory_iterator());
  }
  bool until(const std::function<bool()> &condition) const {
    // What is waited for may be noticed by GLib's thread, which wakes nobody here.
    const guint ticks = g_timeout_add(
        5, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
    const bool holds = thread.runUntil(condition);
    g_source_remove(ticks);
    return holds;
  }
  bool becomesRight(Subject &subject, FakeService &service) const {
    return until([&] {
      subject.prod(service);
      return subject.isRight();
    });
  }
  bool isCalled(const char *method, Subject &subject, FakeService &service) const {
    const int before = service.calls(method);
    return until([&] {
      subject.prod(service);  // some things are asked for only when there is news
      return service.calls(method) > before;
    });
  }

  /// Gives what has been answered or told the time to come.
  void letItCome() const {
    int turns = 0;
    EXPECT_TRUE(until([&turns] { return ++turns > 5; }));
  }

  /// Has a new adapter live through `trouble`, then through the service's restart, and end.
  void live(const std::function<void(Subject &subject, FakeService &service)> &trouble) {
    g_main_context_iteration(nullptr, FALSE);
    const std::ptrdiff_t descriptors = openDescriptors();
    testing::internal::CaptureStderr();
    {
      const auto subject = GetParam().make();
      FakeService service(bus, subject->serviceName());
      subject->serve(service);
      subject->begin(LinuxRunLoop::of(g_main_context_default()));
      trouble(*subject, service);
      letItCome();
      service.vanish();
      EXPECT_TRUE(until([&] { return !subject->isRight(); })) << "though the service is gone";
      service.answerNothingSpecial();
      subject->serve(service);
      service.appear();
      EXPECT_TRUE(becomesRight(*subject, service)) << "though the service has come to its senses";
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_TRUE(until([&] { return openDescriptors() <= descriptors; })) << "something has stayed behind";
  }

  PrivateBus bus;
  const MainThread thread;
};

template <class Made>
std::unique_ptr<Subject> make() {
  return std::make_unique<Made>();
}

INSTANTIATE_TEST_SUITE_P(Of, BusTroubleTest,
                         testing::Values(Adapter{"ModemManager", &make<TelephonySubject>},
                                         Adapter{"GeoClue", &make<GeoClueSubject>},
                                         Adapter{"LocationPortal", &make<PortalLocationSubject>},
                                         Adapter{"NetworkManager", &make<NetworkManagerSubject>},
                                         Adapter{"NetworkPortal", &make<PortalNetworkSubject>}),
                         [](const auto &instance) { return instance.param.name; });

TEST_P(BusTroubleTest, AnswersOfAnyKindAreSurvived) {
  for (const char *const method : GetParam().make()->methods()) {
    for (const Body &body : bodies) {
      SCOPED_TRACE(std::string(method) + " is answered with " + body.what);
      live([&](Subject &subject, FakeService &service) {
        service.answer(method, [&body](GDBusMessage *) { return body.make(); });
        service.appear();
        ASSERT_TRUE(isCalled(method, subject, service));
      });
    }
  }
}

TEST_P(BusTroubleTest, SilenceAndErrorsAreSurvived) {
  for (const char *const method : GetParam().make()->methods()) {
    for (const bool silent : {true, false}) {
      SCOPED_TRACE(std::string(method) + (silent ? " is never answered" : " is refused"));
      live([&](Subject &subject, FakeService &service) {
        service.refuse(method, "org.example.Error.No", "\u00fcberhaupt nicht %s %n");
        if (silent) service.answer(method, "");
        service.appear();
        ASSERT_TRUE(isCalled(method, subject, service));
      });
    }
  }
}

TEST_P(BusTroubleTest, AServiceThatDiesIsFoundAgain) {
  live([](Subject &, FakeService &service) {  // before it is asked anything
    for (int i = 0; i < 20; ++i) {
      service.appear();
      service.vanish();
    }
    service.appear();
  });
  for (const char *const method : GetParam().make()->methods()) {
    SCOPED_TRACE(std::string("it dies when asked for ") + method);
    live([&](Subject &subject, FakeService &service) {
      service.answer(method, "");
      service.appear();
      for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(isCalled(method, subject, service));
        service.vanish();
        service.appear();
      }
    });
  }
}

TEST_P(BusTroubleTest, SignalsOfAnyKindAndNumberAreSurvived) {
  for (const Subject::Signal &signal : GetParam().make()->signals()) {
    SCOPED_TRACE(std::string("it tells ") + signal.name);
    live([&](Subject &subject, FakeService &service) {
      service.appear();
      ASSERT_TRUE(becomesRight(subject, service));
      for (const Body &body : bodies) service.emit(signal.path, signal.interface, signal.name, body.make());
      for (std::size_t i = 0; i < 500; ++i) {
        service.emit(signal.path, signal.interface, signal.name, bodies[i % 12].make());
      }
      service.flush();
    });
  }
}

TEST_P(BusTroubleTest, TheBusMayEndAndComeBack) {
  live([&](Subject &subject, FakeService &service) {
    service.appear();
    ASSERT_TRUE(becomesRight(subject, service));
    bus.stop();
    EXPECT_TRUE(until([&] { return !subject.isRight(); }));
    service.vanish();
    bus.start();
    service.appear();
    EXPECT_TRUE(becomesRight(subject, service));
  });
}

}  // namespace
}  // namespace kx
