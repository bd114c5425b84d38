#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "KXPublisher/platform/simulated/SimulatedPlatform.h"
#include "tools/explore/LibraryPromises.h"
#include "tools/explore/ReportModel.h"
#include "tools/explore/Story.h"

namespace kx {

/// What the library promises its host and its service, watched over on one simulated device.
class Promises {
 public:
  Promises(SimulatedPlatform &device, const Story &story);

  /// A request on its way to the service, and the answer that it will get.
  void requestArrives(const SimulatedRequest &request, const SimulatedReply &reply);
  /// The process is suspended, or resumed: what has been answered meanwhile arrives only now.
  void isSuspended() { ofLibrary_.isSuspended(now()); }
  void isResumed() { ofLibrary_.isResumed(now()); }
  /// All requests that are under way fail now.
  void connectionsAreLost() { ofLibrary_.connectionsAreLost(now()); }
  /// All is quiet; the library has made the reports that `model` expects.
  void look(const ReportModel &model);

  /// What was broken first.
  const std::optional<std::string> &broken() const { return broken_; }

 private:
  static constexpr double timeoutWithoutProgress = 60.0;  // seconds

  double now() const { return device_.scheduler.uptime(); }
  void breaks(const std::string &what);
  void lookAtCounts();

  SimulatedPlatform &device_;
  LibraryPromises ofLibrary_;
  std::optional<std::string> broken_;
  std::size_t registrations_ = 0;
  std::size_t linesSeen_ = 0;
};

}  // namespace kx
