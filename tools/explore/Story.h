#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kx {

/// Something that happens to the device, or that its service is told to answer next.
enum class Happening {
  timePasses,  ///< `amount` seconds
  entersBackground,
  entersForeground,
  networkChanges,        ///< 0 lost, 1 Wi-Fi, 2 cellular, 3 unknown
  carrierChanges,        ///< 0 none, otherwise its number
  moves,                 ///< `amount` hundredths of a degree north
  authorizationChanges,  ///< 0 denied, otherwise granted
  updatesPause,
  updatesResume,
  clockJumps,  ///< `amount` seconds, back if negative
  sleeps,      ///< `amount` seconds
  isSuspended,
  isResumed,
  tokensAreRevoked,
  loginIsAnswered,    ///< the next one, by the answer of that number
  messageIsAnswered,  ///< the next one, likewise
  hostReports,        ///< `amount` times, at once
  refreshIsAllowed,   ///< 0 denied
  tasksExpire,
  userDrags,  ///< 0 no longer
};

struct StoryEvent {
  Happening happening;
  double amount;
};

/// The answers that a service may give: each class of status, with and without a token, transport errors,
/// silence, late ones, and those that are there at once.
constexpr int kindsOfAnswers = 15;

/// A device's life: how it is at first, and what happens to it.
struct Story {
  std::uint64_t seed = 0;  ///< of the schedule that it is played with
  int identifier = 0;      ///< 0 a usable one; 1 all zeros, 2 empty, 3 none
  double latency = 0.1;    ///< of the service, in seconds
  std::vector<StoryEvent> events;

  /// The story of that number; always the same.
  static Story ofSeed(std::uint64_t seed);
  /// A line an event.
  std::string text() const;
};

}  // namespace kx
