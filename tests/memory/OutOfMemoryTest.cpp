#include <gtest/gtest.h>

#include <new>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "KXPublisher/KXPublisher.hpp"
#include "KXPublisher/platform/simulated/SimulatedScope.h"
#include "KXPublisher/transport/KXNetworking.h"
#include "tests/memory/FailingMemory.h"

namespace kx {
namespace {

constexpr double hour = 3600.0;  // seconds

#ifdef KX_ALLOCATIONS_LEFT_OUT
constexpr long leftOut =
    KX_ALLOCATIONS_LEFT_OUT;  // under a sanitizer or an emulator, where a life takes long
#else
constexpr long leftOut = 0;
#endif

/// A phone's life of some hours in which everything happens that the library takes part in, and a while after
/// it in which all is well.
class Life {
 public:
  Life() {
    SimulatedPlatform &device = scope_.device;
    device.locationService.status = AuthorizationStatus::authorizedWhenInUse;
    device.locationService.position = here();
    Placemark place;
    place.ISOcountryCode = "GB";
    place.locality = "Leeds";
    place.postalCode = "LS1";
    place.timeZoneSecondsFromGMT = 3600;
    device.locationService.placemarks = {place};
    device.telephonyService.carrier = SimulatedCarrier{"234", "15"};
    device.telephonyService.radioAccessTechnology = "CTRadioAccessTechnologyLTE";
    device.application->refreshStatus = BackgroundRefreshStatus::available;
    device.service.script(device.service.loginPath, {SimulatedReply::status(500)});
  }

  /// What the memory fails for: the host's calls, and what the device has the library do, but not what the
  /// device does for itself.
  bool concernsTheLibrary() {
    return !scope_.device.scheduler.isAtOwnWork() &&
           (inHostsCall_ || scope_.device.scheduler.runningTask() != 0);
  }

  void pass() {
    SimulatedPlatform &device = scope_.device;
    host([] { call(); });
    goOn(310);
    host([] {
      if (const auto publisher = call()) publisher->description();
    });
    goOn(400);
    device.telephonyService.changeCarrier(SimulatedCarrier{"234", "20"});
    device.locationService.moveTo(there());
    device.reachability.changeFlags(cellular());
    goOn(10);
    device.locationService.changeAuthorization(AuthorizationStatus::denied);
    goOn(10);
    device.locationService.changeAuthorization(AuthorizationStatus::authorizedAlways);
    goOn(10);
    device.service.script(device.service.messagePath, {SimulatedReply::status(403)});
    goOn(600);
    background();
    goOn(60);
    foreground();
    device.service.script(device.service.messagePath,
                          {SimulatedReply::failure("cut"), SimulatedReply::status(500)});
    device.service.script(device.service.loginPath, {SimulatedReply::status(204)});
    goOn(700);
    device.application->refreshStatus = BackgroundRefreshStatus::denied;
    background();
    goOn(60);
    foreground();
    host([] {
      KXPublisher::diagnosis().text();
      if (const auto publisher = call()) publisher->logDataAsync(false);
    });
    goOn(60);
    device.application->refreshStatus = BackgroundRefreshStatus::available;
    background();
    device.application->expireBackgroundTasks();
    goOn(60);
    foreground();
    goOn(60);
  }

  /// What can be said once the memory is there again; empty when all is as it should be. Where more than one
  /// allocation failed, the application has first to be left and returned to.
  std::string afterwards(bool returns, const nlohmann::json &expected) {
    SimulatedPlatform &device = scope_.device;
    if (call() == nullptr) return "there is no publisher";
    if (returns) {
      background();
      goOn(10);
      foreground();
    }
    goOn(1.5 * hour + 100);
    const double from = device.scheduler.uptime();
    goOn(3 * 600);
    std::vector<nlohmann::json> last;
    for (const auto &request : device.service.messages()) {
      if (request.time < from) continue;
      if (const auto text = request.text()) last.push_back(nlohmann::json::parse(*text).at(0));
    }
    if (last.size() != 3) return std::to_string(last.size()) + " messages in half an hour";
    for (auto &message : last) {
      for (const char *own : {"id", "eventTime"}) message.erase(own);
      if (!expected.is_null() && message != expected)
        return "a message that differs in " + nlohmann::json::diff(expected, message).dump();
    }
    last_ = last.back();
    if (device.counts().backgroundTasks != 0) return "a background task has not ended";
    if (device.counts().sessions != 0) return "a session is left";
    if (device.counts().telephonyObjects != 1) return "telephony objects grow";
    if (device.counts().timers != 1) return std::to_string(device.counts().timers) + " timers";
    return {};
  }

  const nlohmann::json &lastMessage() const { return last_; }

 private:
  static std::shared_ptr<KXPublisher> call() {
    return KXPublisher::sharedInstanceWithApiToken("token", "collect.example.com");
  }
  static Location here() {
    Location location;
    location.coordinate = {53.8, -1.55};
    location.horizontalAccuracy = 5;
    return location;
  }
  static Location there() {
    Location location = here();
    location.coordinate.latitude += 0.1;
    return location;
  }
  static NetworkReachabilityFlags cellular() {
    return networkReachabilityFlagsReachable | networkReachabilityFlagsIsWWAN;
  }

  /// A call of the host or of the system, which ends what the library's handlers throw.
  template <class Call>
  void host(Call call) {
    inHostsCall_ = true;
    try {
      call();
    } catch (const std::bad_alloc &) {
    }
    inHostsCall_ = false;
  }
  void background() {
    host([this] { scope_.device.application->enterBackground(); });
  }
  void foreground() {
    host([this] { scope_.device.application->enterForeground(); });
  }
  /// Whatever ends in an exception, the device goes on.
  void goOn(double seconds) {
    const double end = scope_.device.scheduler.uptime() + seconds;
    for (bool whole = false; !whole;) {
      try {
        scope_.device.advance(end - scope_.device.scheduler.uptime());
        whole = true;
      } catch (const std::bad_alloc &) {
      }
    }
  }

  SimulatedScope scope_;
  bool inHostsCall_ = false;
  nlohmann::json last_;
};

/// The last message of a life in which nothing fails.
nlohmann::json expectedMessage() {
  Life life;
  life.pass();
  EXPECT_EQ(life.afterwards(false, nullptr), "");
  return life.lastMessage();
}

class OutOfMemory : public ::testing::TestWithParam<long> {};

TEST_P(OutOfMemory, LosesAReportAtWorst) {
  const nlohmann::json expected = expectedMessage();
  const long inARow = GetParam();
  long first = 1;
  for (bool failed = true; failed; first += 1 + leftOut) {
    SCOPED_TRACE("the allocation that fails first: " + std::to_string(first));
    Life life;
    failing_memory::failFrom(first, inARow, [&life] { return life.concernsTheLibrary(); });
    life.pass();
    failing_memory::recover();
    failed = failing_memory::hasFailed();
    ASSERT_EQ(life.afterwards(inARow > 1, expected), "");
  }
  EXPECT_GT(first, 1000);
}

INSTANTIATE_TEST_SUITE_P(InARow, OutOfMemory, ::testing::Values(1, 2, 3, 5, 10, 100));

}  // namespace
}  // namespace kx
