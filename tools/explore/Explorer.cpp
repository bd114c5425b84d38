#include "tools/explore/Explorer.h"

#include <KXPublisher/KXPublisher.hpp>
#include <exception>
#include <utility>

#include "KXPublisher/platform/simulated/SimulatedScope.h"
#include "tools/explore/Promises.h"
#include "tools/explore/ReportModel.h"

namespace kx {

namespace {

using Service = SimulatedCollectionService;

SimulatedReply answer(int kind, bool login) {
  SimulatedReply reply = login ? SimulatedReply::token("scripted") : SimulatedReply::status(200);
  switch (kind) {
    case 0:
      return SimulatedReply::status(100);
    case 1:
      return SimulatedReply::status(200);
    case 2:
      return SimulatedReply::status(204);
    case 3:
      return SimulatedReply::status(302);
    case 4:
      return SimulatedReply::status(403);
    case 5:
      return SimulatedReply::status(404);
    case 6:
      return SimulatedReply::status(500);
    case 7:
      return SimulatedReply::failure("scripted");
    case 8:
      return SimulatedReply::silence();
    case 9:
      reply.isHTTP = false;
      return reply;
    case 10:
      reply.latency = 0;
      return reply;
    case 11:
      reply.latency = 59;
      return reply;
    case 12:
      reply.statusCode = 500;  // with a token
      return reply;
    case 13:
      reply.error = Error{"simulated", -1, "scripted"};
      reply.answersToo = true;
      return reply;
    default:
      return reply;
  }
}

NetworkReachabilityFlags flagsOf(double network) {
  if (network == 0) return 0;
  return networkReachabilityFlagsReachable | (network == 2 ? networkReachabilityFlagsIsWWAN : 0U);
}

/// One story, as it is being played.
class Play {
 public:
  Play(const Story &story, const Explorer::Promise &another)
      : story_(story),
        another_(another),
        scope_(story.seed),
        device_(scope_.device),
        promises_(device_, story) {}

  SimulatedPlatform &device() { return device_; }
  void end() { scope_.end(); }

  std::optional<std::string> run() {
    begin();
    for (const StoryEvent &event : story_.events) {
      happens(event);
      if (!device_.scheduler.isSuspended()) look();
      if (promises_.broken()) return promises_.broken();
      if (another_ != nullptr) {
        if (auto broken = another_(device_)) return broken;
      }
    }
    return std::nullopt;
  }

 private:
  void begin() {
    switch (story_.identifier) {
      case 1:
        device_.advertisingService->identifier = "00000000-0000-0000-0000-000000000000";
        break;
      case 2:
        device_.advertisingService->identifier = "";
        break;
      case 3:
        device_.advertisingService->identifier = std::nullopt;
        break;
      default:
        break;
    }
    device_.service.latency = story_.latency;
    device_.service.respond = [this](const SimulatedRequest &request) {
      auto &scripted = request.path() == Service::loginPath ? logins_ : messages_;
      SimulatedReply reply;
      if (scripted.empty()) {
        reply = device_.service.defaultReply(request);
      } else {
        reply = scripted.front();
        scripted.erase(scripted.begin());
      }
      promises_.requestArrives(request, reply);
      return reply;
    };
    device_.locationService.position = Location{{52.5, 13.4}, 5, 34, 5};
    device_.locationService.placemarks = {Placemark{}};
    KXPublisher::sharedInstanceWithApiToken("token", "collect.example.com");
  }

  /// In pieces, so that no timer is due twice in one of them.
  void timePasses(double seconds) {
    while (true) {
      const double piece = std::min(seconds, 150.0);
      model_.timePasses(piece);
      device_.advance(piece);
      if (!device_.scheduler.isSuspended()) model_.mainLoopRuns();
      seconds -= piece;
      if (seconds <= 0) return;
      if (!device_.scheduler.isSuspended()) look();
    }
  }

  void look() {
    device_.runReadyTasks();
    model_.mainLoopRuns();
    promises_.look(model_);
  }

  void happens(const StoryEvent &event) {
    const auto number = static_cast<int>(event.amount);
    switch (event.happening) {
      case Happening::timePasses:
        return timePasses(event.amount);
      case Happening::entersBackground:
        model_.entersBackground();
        return device_.application->enterBackground();
      case Happening::entersForeground:
        model_.entersForeground();
        return device_.application->enterForeground();
      case Happening::networkChanges:
        if (event.amount == 0) promises_.connectionsAreLost();
        return device_.reachability.changeFlags(
            event.amount == 3 ? std::nullopt
                              : std::optional<NetworkReachabilityFlags>(flagsOf(event.amount)));
      case Happening::carrierChanges:
        return device_.telephonyService.changeCarrier(
            number == 0 ? std::nullopt
                        : std::optional<SimulatedCarrier>(SimulatedCarrier{"262", std::to_string(number)}));
      case Happening::moves:
        return device_.locationService.moveTo(Location{{event.amount / 100, 13.4}, 5, 34, 5});
      case Happening::authorizationChanges:
        return device_.locationService.changeAuthorization(
            number == 0 ? AuthorizationStatus::denied : AuthorizationStatus::authorizedAlways);
      case Happening::updatesPause:
        return device_.locationService.pauseUpdates();
      case Happening::updatesResume:
        return device_.locationService.resumeUpdates();
      case Happening::clockJumps:
        device_.clockService.atSwitchOn += event.amount;
        return;
      case Happening::sleeps:
        promises_.connectionsAreLost();
        return device_.sleep(event.amount);
      case Happening::isSuspended:
        promises_.isSuspended();
        return device_.suspend();
      case Happening::isResumed:
        promises_.isResumed();
        return device_.resume();
      case Happening::tokensAreRevoked:
        return device_.service.revokeTokens();
      case Happening::loginIsAnswered:
        logins_.push_back(answer(number, /*login=*/true));
        return;
      case Happening::messageIsAnswered:
        messages_.push_back(answer(number, /*login=*/false));
        return;
      case Happening::hostReports:
        model_.hostReports(static_cast<unsigned>(number));
        for (int i = 0; i < number; ++i) {
          KXPublisher::sharedInstanceWithApiToken({}, {})->logDataAsync(true);
        }
        return;
      case Happening::refreshIsAllowed:
        device_.application->refreshStatus =
            number == 0 ? BackgroundRefreshStatus::denied : BackgroundRefreshStatus::available;
        return;
      case Happening::tasksExpire:
        return device_.application->expireBackgroundTasks();
      case Happening::userDrags:
        return device_.runLoopService.setTracking(number != 0);
    }
  }

  const Story &story_;
  const Explorer::Promise &another_;
  SimulatedScope scope_;
  SimulatedPlatform &device_;
  Promises promises_;
  ReportModel model_;
  std::vector<SimulatedReply> logins_;
  std::vector<SimulatedReply> messages_;
};

}  // namespace

std::optional<std::string> Explorer::play(const Story &story, std::string *trace,
                                          std::string *picture) const {
  Play play(story, another_);
  play.device().scheduler.trace.recording = trace != nullptr || picture != nullptr;
  std::optional<std::string> broken;
  const auto watched = [&broken](const auto &step) {
    try {
      step();
    } catch (const std::exception &exception) {
      if (!broken) broken = std::string("something was thrown: ") + exception.what();
    }
  };
  watched([&] { broken = play.run(); });
  if (trace != nullptr) *trace = play.device().trace();
  if (picture != nullptr) *picture = play.device().scheduler.trace.svg();
  watched([&] { play.end(); });
  return broken;
}

Story Explorer::shrink(Story story) const {
  for (std::size_t size = story.events.size(); size > 0; size /= 2) {
    for (std::size_t at = 0; at < story.events.size();) {
      Story shorter = story;
      const auto first = shorter.events.begin() + static_cast<std::ptrdiff_t>(at);
      shorter.events.erase(first,
                           first + static_cast<std::ptrdiff_t>(std::min(size, story.events.size() - at)));
      if (play(shorter)) {
        story = std::move(shorter);
      } else {
        at += size;
      }
    }
  }
  return story;
}

}  // namespace kx
