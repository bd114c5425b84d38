#include "tests/tools/fleet/FleetLife.h"

#include <algorithm>
#include <cstdio>
#include <tuple>

#include "KXPublisher/KXPublisher.hpp"
#include "KXPublisher/platform/simulated/SimulatedScope.h"
#include "tools/fleet/EventWheel.h"
#include "tools/fleet/FleetService.h"

namespace kx::fleet {

namespace {

/// What both sides ask.
class LifeService {
 public:
  explicit LifeService(const FleetLife &life) : service_(life.service, life.seed, 0) {}

  Answer login(Time now) { return onGrid(service_.login(0, now)); }
  Answer message(Time now, Time token) { return onGrid(service_.message(0, now, token)); }

 private:
  static Answer onGrid(Answer answer) {
    answer.after = std::max(answer.after / grid, 1) * grid;
    return answer;
  }

  FleetService service_;
};

// ---- The fleet's device

class Model : public Surroundings {
 public:
  explicit Model(const FleetLife &life) : life_(life), service_(life), wheel_(life.end) {
    device_.hasUsableIdentifier = life.hasUsableIdentifier;
  }

  std::vector<Sent> run() {
    for (std::size_t i = 0; i < life_.events.size(); ++i) {
      wheel_.schedule(life_.events[i].at, Phase::life, static_cast<std::uint32_t>(i),
                      Happening::sessionBegins, 0);
    }
    wheel_.run([](std::uint32_t) {},
               [this](const EventWheel::Event &event, Time now) {
                 if (event.happening == Happening::sessionBegins) {
                   acts(life_.events[event.device].act, now);
                 } else if (event.number == device_.process()) {
                   device_.happens(event.happening, now, *this);
                 }
               });
    return std::move(sent_);
  }

  void schedule(Time at, Phase phase, Happening happening) override {
    wheel_.schedule(at, phase, 0, happening, device_.process());
  }
  Answer login(Time now) override {
    sent_.push_back({now, true, never});
    return service_.login(now);
  }
  Answer message(Time now, Time tokenIssuedAt) override {
    sent_.push_back({now, false, tokenIssuedAt});
    return service_.message(now, tokenIssuedAt);
  }
  void reportIsLost(Time, Lost) override {}

 private:
  void acts(Act act, Time now) {
    switch (act) {
      case Act::launches:
        return device_.launches(now, *this);
      case Act::entersBackground:
        return device_.entersBackground(now, *this);
      case Act::entersForeground:
        return device_.entersForeground(now, *this);
      case Act::isSuspended:
        return device_.isSuspended();
      case Act::isResumed:
        return device_.isResumed(now, *this);
      case Act::refreshIsDenied:
      case Act::refreshIsGranted:
        return;
    }
  }

  const FleetLife &life_;
  LifeService service_;
  EventWheel wheel_;
  FleetDevice device_;
  std::vector<Sent> sent_;
};

// ---- The library

/// Close to so many milliseconds, and nothing is lost where the like are added.
double secondsOf(Time time) {
  return std::round(time / 1000.0 * 0x1p20) / 0x1p20;
}

Time timeOf(double seconds) {
  return static_cast<Time>(std::lround(seconds * 1000));
}

SimulatedReply replyTo(bool isLogin, Time now, const Answer &answer) {
  SimulatedReply reply;
  if (answer.outcome == Answer::Outcome::refused) {
    reply = SimulatedReply::status(403);
  } else if (answer.outcome == Answer::Outcome::accepted) {
    reply = isLogin ? SimulatedReply::token(std::to_string(now)) : SimulatedReply::status(200);
  } else if (answer.after == FleetService::patience) {
    return SimulatedReply::silence();
  } else {
    // One failure is as good as another.
    switch (now / grid % 4) {
      case 0:
        reply = SimulatedReply::failure("scripted");
        break;
      case 1:
        reply = SimulatedReply::status(isLogin ? 403 : 401);
        break;
      case 2:
        reply.isHTTP = false;
        break;
      default:
        reply = SimulatedReply::status(isLogin ? 200 : 500);  // a success without a token is none
        break;
    }
  }
  reply.latency = answer.after / 1000.0;
  return reply;
}

/// One process, from its start to the next one or to the end.
class Process {
 public:
  Process(const FleetLife &life, LifeService &service, Time begins, std::vector<Sent> &sent)
      : service_(service), begins_(secondsOf(begins)), sent_(sent) {
    device_.clockService.atSwitchOn += begins_;
    if (!life.hasUsableIdentifier) device_.advertisingService->identifier = std::nullopt;
    device_.service.respond = [this](const SimulatedRequest &request) { return answers(request); };
    KXPublisher::sharedInstanceWithApiToken("token", "collect.example.com");
    device_.runReadyTasks();
  }

  void advanceTo(Time time) { device_.advance(secondsOf(time) - begins_ - device_.scheduler.uptime()); }

  void acts(Act act) {
    SimulatedApplication &application = *device_.application;
    switch (act) {
      case Act::launches:
        break;
      case Act::entersBackground:
        application.enterBackground();
        break;
      case Act::entersForeground:
        application.enterForeground();
        break;
      case Act::isSuspended:
        device_.suspend();
        break;
      case Act::isResumed:
        device_.resume();
        break;
      case Act::refreshIsDenied:
        application.refreshStatus = BackgroundRefreshStatus::denied;
        break;
      case Act::refreshIsGranted:
        application.refreshStatus = BackgroundRefreshStatus::available;
        break;
    }
    device_.runReadyTasks();
  }

 private:
  SimulatedReply answers(const SimulatedRequest &request) {
    const Time now = timeOf(begins_ + request.time);
    const bool isLogin = request.path() == SimulatedCollectionService::loginPath;
    const Time token = isLogin ? never : std::stoi(request.header("Authorization")->substr(7));
    sent_.push_back({now, isLogin, token});
    return replyTo(isLogin, now, isLogin ? service_.login(now) : service_.message(now, token));
  }

  LifeService &service_;
  const double begins_;
  std::vector<Sent> &sent_;
  SimulatedScope scope_;
  SimulatedPlatform &device_ = scope_.device;
};

bool differs(const FleetLife &life) {
  return sentByFleet(life) != sentByLibrary(life);
}

std::string textOf(const std::vector<Sent> &sent, std::size_t index) {
  if (index >= sent.size()) return "-";
  const Sent &request = sent[index];
  std::string text = std::to_string(request.at) + (request.isLogin ? " login" : " message");
  return request.isLogin ? text : text + " with the token of " + std::to_string(request.token);
}

}  // namespace

bool Sent::operator<(const Sent &other) const {
  return std::tie(at, isLogin, token) < std::tie(other.at, other.isLogin, other.token);
}

std::vector<Sent> sentByFleet(const FleetLife &life) {
  std::vector<Sent> sent = Model(life).run();
  std::sort(sent.begin(), sent.end());
  return sent;
}

std::vector<Sent> sentByLibrary(const FleetLife &life) {
  LifeService service(life);
  std::vector<Sent> sent;
  std::unique_ptr<Process> process;
  for (const auto &[at, act] : life.events) {
    if (process != nullptr) process->advanceTo(at);
    if (act == Act::launches) {
      process = nullptr;  // there is one at a time
      process = std::make_unique<Process>(life, service, at, sent);
    } else {
      process->acts(act);
    }
  }
  process->advanceTo(life.end);
  std::sort(sent.begin(), sent.end());
  return sent;
}

std::string difference(const FleetLife &life) {
  const auto fleet = sentByFleet(life);
  const auto library = sentByLibrary(life);
  std::string text = life.text();
  for (std::size_t i = 0; i < std::max(fleet.size(), library.size()); ++i) {
    const std::string left = textOf(fleet, i);
    const std::string right = textOf(library, i);
    char line[200];
    std::snprintf(line, sizeof line, "%c %-50s %s\n", left == right ? ' ' : '!', left.c_str(), right.c_str());
    text += line;
  }
  return text;
}

FleetLife shrink(FleetLife life) {
  const auto tryWithout = [&life](auto &&listOf, std::size_t index) {
    FleetLife shorter = life;
    auto &list = listOf(shorter);
    list.erase(list.begin() + static_cast<std::ptrdiff_t>(index));
    if (!differs(shorter)) return false;
    life = shorter;
    return true;
  };
  const auto shrinkList = [&](auto listOf, std::size_t least) {
    bool some = false;
    for (std::size_t i = listOf(life).size(); i-- > least;) some = tryWithout(listOf, i) || some;
    return some;
  };
  while (shrinkList([](FleetLife &of) -> auto & { return of.events; }, 1) ||
         shrinkList([](FleetLife &of) -> auto & { return of.service.outages; }, 0) ||
         shrinkList([](FleetLife &of) -> auto & { return of.service.refusals; }, 0)) {
  }
  return life;
}

}  // namespace kx::fleet
