#include "tests/platform/linux/stories/LinuxStory.h"

#include <glib.h>

#include <KXPublisher/KXPublisher.hpp>
#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "KXPublisher/platform/linux/LinuxHost.h"
#include "KXPublisher/transport/KXNetworking.h"
#include "tests/platform/linux/MainLoop.h"
#include "tests/platform/linux/lifecycle/FakeLogind.h"
#include "tests/platform/linux/location/FakeGeoClue.h"
#include "tests/platform/linux/network/NetworkNamespace.h"
#include "tests/platform/linux/stories/LogLines.h"
#include "tests/platform/linux/stories/StoryService.h"
#include "tests/platform/linux/telephony/FakeModemManager.h"
#include "tests/platform/linux/threads/SleepingThreads.h"
#include "tests/platform/linux/threads/VirtualTime.h"
#include "tools/explore/LibraryPromises.h"
#include "tools/explore/ReportModel.h"

namespace kx {

namespace {

constexpr int carriers = 4;
constexpr double longitude = 13.4;
constexpr double burst = 0.05;  // seconds, for which the library lets changes of the network gather

std::size_t descriptorsCount() {
  const std::filesystem::directory_iterator descriptors("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
}

/// Without those that GLib keeps for a while, of real time.
std::size_t threadsCount() {
  std::size_t count = 0;
  for (const auto &thread : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string name;
    std::getline(std::ifstream(thread.path() / "comm"), name);
    if (name.rfind("pool", 0) != 0) ++count;
  }
  return count;
}

/// A network with one way out by Wi-Fi and another by a modem, of which it takes the first.
void makeNetwork() {
  if (const auto reason = NetworkNamespace::enter()) throw NoNetwork(*reason);
  NetworkNamespace::ip("link set lo up");
  for (const char *const name : {"wlan0", "rmnet0"}) {
    NetworkNamespace::addLink(name);
    // The kernel takes its time to tell of a cable.
    const std::string state = std::string("/sys/class/net/") + name + "/operstate";
    if (!eventually([&state] {
          std::string text;
          std::ifstream(state) >> text;
          return text == "up";
        })) {
      throw std::runtime_error(state + " is not up");
    }
  }
  NetworkNamespace::ip("route add default dev wlan0");
}

/// One story, as it is being played.
class Play {
 public:
  explicit Play(const Story &story) : story_(story), random_(story.seed) {
    makeNetwork();
    bus_.emplace();
    logind_.emplace(*bus_);
    geoClue_.emplace(*bus_);
    geoClue_->appear();
    modemManager_.emplace(*bus_);
    for (int number = 1; number <= carriers; ++number) {
      modemManager_->setOperatorIdentifier(number, "2620" + std::to_string(number));
    }
    modemManager_->addModem(0, 1, MM_MODEM_ACCESS_TECHNOLOGY_LTE);
    modemManager_->start();
    sleeping_.emplace(std::vector<pid_t>{bus_->process()});
    time_.emplace();
    time_->mayPass = [this] { return sleeping_->allSleep(); };
    promises_.emplace(/*usableIdentifier=*/story.identifier == 0,
                      [this](const std::string &what) { breaks(what); });
    service_.emplace(*time_, story.latency, *promises_);
  }

  ~Play() { time_->end(); }
  Play(const Play &) = delete;
  Play &operator=(const Play &) = delete;

  StoryEnd run() {
    begin();
    for (const StoryEvent &event : story_.events) {
      happens(event);
      // What follows may come while the library is still at work.
      if (random_() % 2 == 0) look();
      if (end_.broken) break;
    }
    if (!end_.broken) endWell();
    end_.log = log_.text();
    return end_;
  }

 private:
  void breaks(const std::string &what) {
    if (!end_.broken) end_.broken = what + " (at " + std::to_string(time_->now()) + " s)";
  }

  void begin() {
    LinuxHostOptions options;
    switch (story_.identifier) {
      case 0:
        options.advertisingIdentifier = "6D92078A-8246-4BA4-AE5B-76104861E7DC";
        break;
      case 1:
        options.advertisingIdentifier = "00000000-0000-0000-0000-000000000000";
        break;
      case 2:
        options.advertisingIdentifier = "";
        break;
      default:
        break;
    }
    options.certificateAuthorityFile = service_->authorityFile();
    options.applicationIdentifier = "org.example.Host";
    if (!LinuxHost::setOptions(options)) throw std::logic_error("the library has been used before");
    publisher_ = KXPublisher::sharedInstanceWithApiToken("token", service_->hostname().c_str());
    if (random_() % 2 == 0) look();
  }

  // ---- Promises

  void look() {
    time_->settle();
    model_.mainLoopRuns();
    service_->tell([this](LibraryPromises &promises) {
      const bool networkIsQuiet = time_->now() > networkChanged_ + burst;
      promises.look(model_, /*followsConnection=*/!isInBackground() && networkIsQuiet);
      for (const std::string &line : log_.takeNew()) promises.lineIsLogged(line);
    });
    lookAtSleepDelays();
  }

  /// In the foreground the library delays the system's sleep, and in the background as long as it has
  /// something to do.
  void lookAtSleepDelays() {
    const std::size_t locks = logind_->heldLocks();
    if (!isInBackground() && locks != 1) breaks(std::to_string(locks) + " locks against sleep");
    if (isInBackground() && service_->inHand() == 0 && locks != 0) {
      breaks("the system's sleep is delayed for nothing");
    }
  }

  /// Whatever has happened: when all is well again, messages arrive; and in the background nothing is left.
  void endWell() {
    wakes();
    changesSide(/*toBackground=*/false);
    changeNetwork(1);
    service_->answerWell();
    timePasses(constants::accessTokenRequestTimeIntervalMaxValue + 2 * constants::loggingTimeInterval + 100);
    look();
    if (service_->inHand() != 0) timePasses(60);  // a report may have been due just now
    // A token that came before the clock was set back is not replaced until that time has come again.
    const bool mustArrive = story_.identifier == 0 && !clockWentBack_;
    if (mustArrive && KXPublisher::diagnosis().delivery != KXDiagnosis::Delivery::accepted) {
      breaks("no message arrives any more: " + KXPublisher::diagnosis().text());
    }
    changesSide(/*toBackground=*/true);
    timePasses(100);
    look();
    end_.threads = threadsCount();
    end_.descriptors = descriptorsCount();
  }

  // ---- What happens

  bool isInBackground() const { return hostIsInBackground_ || sleeps_; }

  /// In pieces, so that no timer is due twice in one of them.
  void timePasses(double seconds) {
    while (true) {
      const double piece = std::min(seconds, 150.0);
      model_.timePasses(piece);
      time_->run(piece);
      time_->waits.clear();
      seconds -= piece;
      model_.mainLoopRuns();
      if (seconds <= 0) return;
      look();
    }
  }

  void happens(const StoryEvent &event) {
    const auto number = static_cast<int>(event.amount);
    switch (event.happening) {
      case Happening::timePasses:
        return timePasses(event.amount);
      case Happening::entersBackground:
        return changesSide(/*toBackground=*/true);
      case Happening::entersForeground:
        return changesSide(/*toBackground=*/false);
      case Happening::networkChanges:
        return changeNetwork(number);
      case Happening::carrierChanges:
        return modemManager_->setSim(0, number == 0 ? std::nullopt : std::optional<int>(number));
      case Happening::moves:
        if (geoClue_->clients.size() == 1) geoClue_->moveTo(event.amount / 100, longitude);
        return;
      case Happening::authorizationChanges:
        return changeAuthorization(number != 0);
      case Happening::clockJumps:
        clockWentBack_ = clockWentBack_ || event.amount < 0;
        return time_->shiftWallClock(event.amount);
      case Happening::sleeps:
        return sleeps(event.amount);
      case Happening::tokensAreRevoked:
        return service_->revokeTokens();
      case Happening::loginIsAnswered:
        return service_->answerLoginBy(number);
      case Happening::messageIsAnswered:
        return service_->answerMessageBy(number);
      case Happening::hostReports:
        return hostReports(number);
      case Happening::updatesPause:
      case Happening::updatesResume:
      case Happening::isSuspended:
      case Happening::isResumed:
      case Happening::refreshIsAllowed:
      case Happening::tasksExpire:
      case Happening::userDrags:
        return;
    }
  }

  /// From several threads, and many at once: only then have the library's own threads much to do with each
  /// other. Now and then all of them are refused together.
  void hostReports(int times) {
    constexpr int hostThreads = 3;
    if (random_() % 2 == 0) service_->revokeTokens();
    model_.hostReports(static_cast<unsigned>(times * hostThreads));
    std::vector<std::thread> reporting;
    for (int i = 0; i < hostThreads; ++i) {
      reporting.emplace_back([this, times] {
        for (int j = 0; j < times; ++j) publisher_->logDataAsync(true);
      });
    }
    for (std::thread &thread : reporting) thread.join();
  }

  void changesSide(bool toBackground) {
    const bool wasInBackground = isInBackground();
    hostIsInBackground_ = toBackground;
    if (toBackground) {
      LinuxHost::didEnterBackground();
    } else {
      LinuxHost::willEnterForeground();
    }
    noteTransition(wasInBackground);
  }

  void noteTransition(bool wasInBackground) {
    if (isInBackground() == wasInBackground) return;
    if (wasInBackground) {
      model_.entersForeground();
    } else {
      model_.entersBackground();
    }
  }

  /// The library learns of it by its routes; that nothing is reached any more is the service's doing.
  void changeNetwork(int number) {
    if (number == 3) return;  // a network of which nothing is known: on Linux there is none
    service_->setReachable(number != 0);
    if (number == 0) time_->settle();  // what is sent again is too late, too
    if (std::exchange(network_, number) == number) return;
    NetworkNamespace::ip(number == 0   ? "route flush default"
                         : number == 1 ? "route replace default dev wlan0"
                                       : "route replace default dev rmnet0");
    networkChanged_ = time_->now();
  }

  void changeAuthorization(bool isAuthorized) {
    if (isAuthorized) {
      geoClue_->errors.clear();
      return;
    }
    geoClue_->errors["Start"] = {"org.freedesktop.DBus.Error.AccessDenied",
                                 "'org.example.Host' disallowed by configuration for UID 1000"};
    if (geoClue_->clients.size() == 1) geoClue_->setActive(false);
  }

  /// The system waits for the library, sleeps, and wakes: every clock has gone on but the monotonic one, and
  /// all connections have ended.
  void sleeps(double seconds) {
    look();
    const bool wasInBackground = isInBackground();
    sleeps_ = true;
    logind_->prepareForSleep(true);
    noteTransition(wasInBackground);
    look();
    if (network_ != 0) service_->setReachable(false);
    time_->settle();
    time_->shiftWallClock(seconds);
    service_->setReachable(network_ != 0);
    wakes();
    look();
  }

  void wakes() {
    if (!sleeps_) return;
    sleeps_ = false;
    logind_->prepareForSleep(false);
    noteTransition(/*wasInBackground=*/true);
  }

  const Story &story_;
  std::mt19937_64 random_;
  LogLines log_;
  StoryEnd end_;
  ReportModel model_;
  std::shared_ptr<KXPublisher> publisher_;
  bool hostIsInBackground_ = false;
  bool sleeps_ = false;
  bool clockWentBack_ = false;
  int network_ = 1;
  double networkChanged_ = 0;

  // Made one after the other, and taken away in the other direction.
  std::optional<PrivateBus> bus_;
  std::optional<FakeLogind> logind_;
  std::optional<FakeGeoClue> geoClue_;
  std::optional<FakeModemManager> modemManager_;
  std::optional<SleepingThreads> sleeping_;
  const MainThread thread_;
  std::optional<VirtualTime> time_;
  std::optional<LibraryPromises> promises_;
  std::optional<StoryService> service_;
};

}  // namespace

StoryEnd playOnLinux(const Story &story) {
  return Play(story).run();
}

}  // namespace kx
