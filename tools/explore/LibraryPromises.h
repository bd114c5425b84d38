#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <set>
#include <string>

#include "tools/explore/ReportModel.h"

namespace kx {

/// What the library promises on every device: to the service, by what arrives there, and to its host. Whoever
/// plays a device tells what happens; what is broken is told to him. Times are in seconds since the start, by
/// the clock that timers go by. Used by one thread at a time.
class LibraryPromises {
 public:
  using Breaks = std::function<void(const std::string &what)>;

  /// `usableIdentifier`: whether the device has one.
  LibraryPromises(bool usableIdentifier, Breaks breaks);

  struct Login {
    double time = 0;
    double ends = 0;                   ///< when it is answered, or given up
    std::optional<std::string> token;  ///< that the answer gives the library; absent: none
  };
  /// A login is at the service, and will be answered so.
  void loginArrives(const Login &login);
  /// A message is at the service, its text and its header field.
  void messageArrives(const std::string &text, const std::optional<std::string> &authorization);
  /// The answer to a message refuses its token; the library gets it at that time.
  void tokenIsRefused(double time);

  /// All requests that are under way fail now.
  void connectionsAreLost(double time);
  /// The process is suspended, or resumed: what has been answered meanwhile arrives only now.
  void isSuspended(double time);
  void isResumed(double time);

  void lineIsLogged(const std::string &line);

  /// All is quiet; the library has made the reports that `model` expects. `followsConnection`: whether the
  /// device tells of changes of its network now.
  void look(const ReportModel &model, bool followsConnection);

 private:
  bool isPossible(double delay, unsigned loginsSinceTheLast) const;
  void lookAtReports(const ReportModel &model);
  void lookAtProviders(bool followsConnection);

  const bool usableIdentifier_;
  const Breaks breaks_;

  std::optional<Login> login_;    ///< the last one
  unsigned loginsStarted_ = 0;    ///< up to that one, by the library's count: some never arrive
  double delayBefore_ = 0;        ///< the retry's delay as it was at the last login
  double lastRefusal_ = -1;       ///< when a message's token was refused for the last time
  double suspendedSince_ = -1;    ///< negative while it runs
  std::set<std::string> tokens_;  ///< that the service has given
  std::set<std::string> identifiers_;
  unsigned droppedWithoutToken_ = 0;
  bool tokenWasHeld_ = false;
};

}  // namespace kx
