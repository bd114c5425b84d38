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

#include "tests/platform/linux/MainLoop.h"
#include "tests/platform/linux/bus/BusTroubleSubjects.h"
#include "tests/support/FakeService.h"

// Each adapter against a service that does all that a service should not, at each thing that it is asked and
// at each thing that it tells: nothing is printed, nothing stays behind, and when the service has come to its
// senses the facts are right.

namespace kx {
namespace {

using trouble::Subject;

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
                         testing::Values(Adapter{"ModemManager", &make<trouble::TelephonySubject>},
                                         Adapter{"GeoClue", &make<trouble::GeoClueSubject>},
                                         Adapter{"LocationPortal", &make<trouble::PortalLocationSubject>},
                                         Adapter{"NetworkManager", &make<trouble::NetworkManagerSubject>},
                                         Adapter{"NetworkPortal", &make<trouble::PortalNetworkSubject>}),
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
