#include "tools/explore/Story.h"

#include <array>
#include <cstdio>
#include <random>

namespace kx {

namespace {

using Random = std::mt19937_64;

std::uint64_t below(Random &random, std::uint64_t bound) {
  return random() % bound;
}

/// Mostly short, for what happens close together is what counts; sometimes through a night.
double timeThatPasses(Random &random) {
  constexpr std::array<double, 12> times{0, 0.25, 0.5, 1, 5, 5, 60, 300, 300, 600, 3600, 40'000};
  return times.at(static_cast<std::size_t>(below(random, times.size())));
}

StoryEvent anyEvent(Random &random) {
  const auto number = [&random](std::uint64_t bound) { return static_cast<double>(below(random, bound)); };
  switch (below(random, 30)) {
    case 0:
      return {Happening::entersBackground, 0};
    case 1:
    case 2:
      return {Happening::entersForeground, 0};
    case 3:
      return {Happening::networkChanges, 0};
    case 4:
    case 5:
      return {Happening::networkChanges, 1 + number(3)};
    case 6:
      return {Happening::carrierChanges, number(5)};
    case 7:
      return {Happening::moves, number(200)};
    case 8:
      return {Happening::authorizationChanges, number(2)};
    case 9:
      return {below(random, 2) == 0 ? Happening::updatesPause : Happening::updatesResume, 0};
    case 10:
      return {Happening::clockJumps, (number(3) - 1) * 86'400};
    case 11:
      return {Happening::sleeps, number(10'000)};
    case 12:
      return {Happening::isSuspended, 0};
    case 13:
    case 14:
      return {Happening::isResumed, 0};
    case 15:
    case 16:
      return {Happening::tokensAreRevoked, 0};
    case 17:
    case 18:
      return {Happening::loginIsAnswered, number(kindsOfAnswers)};
    case 19:
      return {Happening::messageIsAnswered, number(kindsOfAnswers)};
    case 20:
    case 21:
      return {Happening::hostReports, 1 + number(5)};
    case 22:
      return {Happening::refreshIsAllowed, number(2)};
    case 23:
      return {Happening::tasksExpire, 0};
    case 24:
      return {Happening::userDrags, number(2)};
    default:
      return {Happening::timePasses, timeThatPasses(random)};
  }
}

const char *nameOf(Happening happening) {
  switch (happening) {
    case Happening::timePasses:
      return "seconds pass:";
    case Happening::entersBackground:
      return "the application enters the background";
    case Happening::entersForeground:
      return "it enters the foreground";
    case Happening::networkChanges:
      return "the network changes to";
    case Happening::carrierChanges:
      return "the carrier changes to";
    case Happening::moves:
      return "the device moves to";
    case Happening::authorizationChanges:
      return "the authorization changes to";
    case Happening::updatesPause:
      return "location updates pause";
    case Happening::updatesResume:
      return "location updates resume";
    case Happening::clockJumps:
      return "the clock jumps by";
    case Happening::sleeps:
      return "the device sleeps for";
    case Happening::isSuspended:
      return "the process is suspended";
    case Happening::isResumed:
      return "the process is resumed";
    case Happening::tokensAreRevoked:
      return "tokens are revoked";
    case Happening::loginIsAnswered:
      return "the next login is answered by";
    case Happening::messageIsAnswered:
      return "the next message is answered by";
    case Happening::hostReports:
      return "the host reports so many times:";
    case Happening::refreshIsAllowed:
      return "background refresh is allowed:";
    case Happening::tasksExpire:
      return "background tasks expire";
    case Happening::userDrags:
      return "the user drags:";
  }
  return "";
}

}  // namespace

Story Story::ofSeed(std::uint64_t seed) {
  Random random(seed ^ 0x5851f42d4c957f2dU);
  Story story;
  story.seed = seed;
  story.identifier = below(random, 8) == 0 ? 1 + static_cast<int>(below(random, 3)) : 0;
  constexpr std::array<double, 4> latencies{0, 0.25, 0.25, 5};
  story.latency = latencies.at(static_cast<std::size_t>(below(random, latencies.size())));
  const std::uint64_t count = 5 + below(random, 36);
  for (std::uint64_t i = 0; i < count; ++i) story.events.push_back(anyEvent(random));
  return story;
}

std::string Story::text() const {
  char line[160];
  std::snprintf(line, sizeof line, "seed %llu, identifier %d, latency %g\n",
                static_cast<unsigned long long>(seed), identifier, latency);
  std::string text = line;
  for (const StoryEvent &event : events) {
    std::snprintf(line, sizeof line, "  %s %g\n", nameOf(event.happening), event.amount);
    text += line;
  }
  return text;
}

}  // namespace kx
