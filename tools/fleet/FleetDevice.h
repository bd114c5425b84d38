#pragma once

#include <cstdint>

namespace kx::fleet {

/// Milliseconds since the forecast's beginning; 24 days at most.
using Time = std::int32_t;
constexpr Time never = -1;

constexpr Time milliseconds(double seconds) {
  return static_cast<Time>(seconds * 1000 + 0.5);  // NOLINT(bugprone-incorrect-roundings): never negative
}

/// What happens to a device at its time.
enum class Happening : std::uint8_t {
  loginSucceeds,
  loginFails,
  tokenIsRefused,  ///< the answer to a message says so
  retryIsDue,
  earlyReport,  ///< 5 s after a start or a return
  repeatedReport,
  // What its user and its system do. The last three are the fleet's own matters.
  isSuspended,
  sessionBegins,
  sessionEnds,
  updateArrives,
};

/// What happens at the same millisecond happens in this order, as it does on a device, where an answer is
/// applied before a retry is decided, and a report is handed to a queue that waits for both.
enum class Phase : std::uint8_t { answers, decisions, reports, life };

/// What a service answers to a request, and when.
struct Answer {
  enum class Outcome : std::uint8_t {
    accepted,  ///< a login: with a token
    refused,   ///< a message: its token
    failed,    ///< in any other way
    later,     ///< nobody knows yet: the device is told when it comes
  };
  Outcome outcome;
  Time after;  ///< milliseconds from the request, at least 1; of what comes later, nothing
};

enum class Lost : std::uint8_t { noIdentifier, noToken };

/// What a device's behaviour is told of and asks for.
class Surroundings {
 public:
  virtual ~Surroundings() = default;

  /// Has that happen to this device at that time, unless its process ends before.
  virtual void schedule(Time at, Phase phase, Happening happening) = 0;
  /// Sends a request, now.
  virtual Answer login(Time now) = 0;
  virtual Answer message(Time now, Time tokenIssuedAt) = 0;
  /// A report was made that is not sent.
  virtual void reportIsLost(Time now, Lost why) = 0;
};

/// What the library does on a device, as far as a service can notice: when it sends which request. It is held
/// against the library itself by thousands of random lives (tests/tools/fleet). As small as can be: there are
/// millions of them.
///
/// Left out is what the library does about clocks that are set, and everything that is in a message.
class FleetDevice {
 public:
  bool hasUsableIdentifier = true;

  // ---- What its user and its system do

  /// A process starts, in the foreground; the one before, if any, has ended.
  void launches(Time now, Surroundings &surroundings);
  void entersBackground(Time now, Surroundings &surroundings);
  void entersForeground(Time now, Surroundings &surroundings);
  /// Nothing of the process runs until it is resumed. What falls due meanwhile happens then.
  void isSuspended() { suspended_ = true; }
  void isResumed(Time now, Surroundings &surroundings);

  // ---- What it has scheduled

  void happens(Happening happening, Time now, Surroundings &surroundings);

  /// By which process what was scheduled is told from what an earlier process had scheduled.
  std::uint8_t process() const { return process_; }
  bool suspended() const { return suspended_; }

 private:
  void report(Time now, Surroundings &surroundings);
  void scheduleReports(Time now, Surroundings &surroundings);
  void reportsRepeatedly(Time now, Surroundings &surroundings);
  void decidesRefresh(Time now, Surroundings &surroundings);
  void logsIn(Time now, Surroundings &surroundings);
  void loginSucceeds();
  void loginFails(Time now, Surroundings &surroundings);
  void postpones(Happening happening);

  Time tokenIssuedAt_ = never;       ///< when the login was sent that brought it; never: there is none
  Time loginSentAt_ = never;         ///< of the one that is outstanding
  Time retryAt_ = never;             ///< while one is pending
  Time nextRepeatedReport_ = never;  ///< in the foreground
  std::uint16_t delay_ = 0;          ///< of the last retry, in seconds; 0 after a success
  std::uint8_t process_ = 0;
  bool suspended_ = false;
  // What fell due while it was suspended, beside what the times above tell.
  std::uint8_t earlyReportsDue_ = 0;
  bool loginHasSucceeded_ = false;
  bool loginHasFailed_ = false;
  bool tokenWasRefused_ = false;
};

}  // namespace kx::fleet
