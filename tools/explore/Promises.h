#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "KXPublisher/platform/simulated/SimulatedPlatform.h"
#include "tools/explore/ReportModel.h"
#include "tools/explore/Story.h"

namespace kx {

/// What the library promises its host and its service, watched over on one device.
class Promises {
 public:
  Promises(SimulatedPlatform &device, const Story &story);

  /// A request on its way to the service, and the answer that it will get.
  void requestArrives(const SimulatedRequest &request, const SimulatedReply &reply);
  /// The process is suspended, or resumed: what has been answered meanwhile arrives only now.
  void isSuspended();
  void isResumed();
  /// All requests that are under way fail now.
  void connectionsAreLost();
  /// All is quiet; the library has made the reports that `model` expects.
  void look(const ReportModel &model);

  /// What was broken first.
  const std::optional<std::string> &broken() const { return broken_; }

 private:
  void breaks(const std::string &what);
  void loginArrives(const SimulatedRequest &request, const SimulatedReply &reply);
  void messageArrives(const SimulatedRequest &request, const SimulatedReply &reply);
  void lookAtReports(const ReportModel &model);
  void lookAtProviders();
  void lookAtCounts();
  void lookAtLog();

  SimulatedPlatform &device_;
  const bool usableIdentifier_;
  std::optional<std::string> broken_;

  bool anyLogin_ = false;
  double loginEnds_ = -1;  ///< when the login under way is answered
  double loginStarted_ = 0;
  double delayBefore_ = 0;       ///< the retry's delay as it was at the last login
  double lastRefusal_ = -1;      ///< when a message was answered with 403 for the last time
  double suspendedSince_ = -1;   ///< negative while it runs
  bool networkWasLost_ = false;  ///< since the last login that arrived: others have failed unseen
  std::set<std::string> identifiers_;
  unsigned droppedWithoutToken_ = 0;
  bool tokenWasHeld_ = false;
  std::size_t registrations_ = 0;
  std::size_t linesSeen_ = 0;
};

}  // namespace kx
