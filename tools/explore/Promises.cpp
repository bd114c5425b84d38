#include "tools/explore/Promises.h"

#include <algorithm>

namespace kx {

namespace {

/// The token that a login's answer gives the library; absent: none.
std::optional<std::string> tokenIn(const SimulatedReply &reply) {
  const bool isTaken = !reply.never && !reply.error && reply.isHTTP;
  if (!isTaken || reply.statusCode < 200 || reply.statusCode > 299) return std::nullopt;
  const auto token = reply.headerFields.find("Set-Authorization");
  return token == reply.headerFields.end() ? std::nullopt : std::optional<std::string>(token->second);
}

}  // namespace

Promises::Promises(SimulatedPlatform &device, const Story &story)
    : device_(device),
      ofLibrary_(/*usableIdentifier=*/story.identifier == 0,
                 [this](const std::string &what) { breaks(what); }) {}

void Promises::breaks(const std::string &what) {
  if (!broken_) broken_ = what + " (at " + std::to_string(now()) + " s)";
}

void Promises::requestArrives(const SimulatedRequest &request, const SimulatedReply &reply) {
  const double answered = request.time + reply.latency.value_or(device_.service.latency);
  if (request.path() == SimulatedCollectionService::loginPath) {
    ofLibrary_.loginArrives(
        {request.time, reply.never ? request.time + timeoutWithoutProgress : answered, tokenIn(reply)});
    return;
  }
  ofLibrary_.messageArrives(request.text().value_or(""), request.header("Authorization"));
  const bool isRefused = reply.statusCode == 403 && !reply.error && !reply.never && reply.isHTTP;
  if (isRefused) ofLibrary_.tokenIsRefused(answered);
}

void Promises::look(const ReportModel &model) {
  // It follows no changes in the background, and hears of none while the user drags.
  const bool followsConnection = !device_.application->inBackground && !device_.runLoopService.isTracking();
  ofLibrary_.look(model, followsConnection);
  lookAtCounts();
  const auto &lines = device_.consoleService.lines;
  for (; linesSeen_ < lines.size(); ++linesSeen_) ofLibrary_.lineIsLogged(lines[linesSeen_]);
}

void Promises::lookAtCounts() {
  const auto counts = device_.counts();
  if (counts.readyTasks != 0 || counts.begunTasks != 0) breaks("a task is left");
  if (counts.backgroundTasks != 0) breaks("a background task has not ended");
  const auto &ended = device_.application->endedIdentifiers;
  for (std::size_t i = 0; i < ended.size(); ++i) {
    if (ended[i] != invalidBackgroundTask && std::count(ended.begin(), ended.end(), ended[i]) != 1) {
      breaks("a background task was ended twice");
    }
  }
  if (registrations_ == 0) registrations_ = counts.registrations;
  if (counts.registrations != registrations_) breaks("registrations with the notification centre grow");
  if (counts.telephonyObjects > 1) breaks("a telephony object is left");
  if (counts.sessions > counts.requests) breaks("a session is left");
}

}  // namespace kx
