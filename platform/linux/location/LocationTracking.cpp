#include "platform/linux/location/LocationTracking.h"

#include <utility>

#include "platform/linux/bus/Weakly.h"
#include "platform/linux/location/GeoClueLocation.h"
#include "platform/linux/location/LinuxLocationManager.h"

namespace kx {

using State = LocationAuthorization::State;

LocationTracking::LocationTracking(const LocationBackend &backend, std::shared_ptr<LinuxRunLoop> mainRunLoop,
                                   std::string desktopId, GeoClueTimes times,
                                   std::shared_ptr<LocationAuthorization> authorization,
                                   std::weak_ptr<LinuxLocationManager> manager)
    : backend_(backend),
      mainRunLoop_(std::move(mainRunLoop)),
      desktopId_(std::move(desktopId)),
      times_(times),
      authorization_(std::move(authorization)),
      manager_(std::move(manager)),
      nextAttempt_(mainRunLoop_->context()),
      answerOverdue_(mainRunLoop_->context()) {}

LocationTracking::~LocationTracking() {
  release();
}

// ---- What the manager needs

void LocationTracking::setConnection(GDBusConnection *connection) {
  release();
  connection_ = retained(connection);
  if (connection == nullptr) settle(State::notDetermined);
  update();
}

bool LocationTracking::isNeeded(LinuxLocationManager &manager) const {
  const auto request = manager.request();
  // Only a paused client tells of its resumption. A delegate that stops updates when it is told of the pause
  // waits for it all the same; whoever stops them later does not.
  const bool awaitsResumption = paused_ && request.stops == stopsWhenPaused_;
  const bool awaitsAuthorization = request.hasDelegate && state_ != State::authorized;
  return request.updating || awaitsResumption || awaitsAuthorization;
}

void LocationTracking::update() {
  if (connection_ == nullptr) return;
  const auto manager = manager_.lock();
  if (manager == nullptr || !isNeeded(*manager)) {
    release();
  } else if (!watch_) {
    watchService();
  } else if (!owner_.empty() && client_ == nullptr && !answered_) {
    startClient(*manager);
  }
}

void LocationTracking::start() {
  if (client_ == nullptr) {
    lookAgain();
  } else {
    update();
  }
}

void LocationTracking::distanceFilterChanged() {
  const auto manager = manager_.lock();
  if (manager == nullptr || client_ == nullptr) return;
  client_->setDistanceThreshold(distanceThreshold(manager->request().distanceFilter));
}

void LocationTracking::release() {
  endClient();
  nextAttempt_.cancel();
  owner_.clear();
  answered_ = false;
  watch_.reset();
}

void LocationTracking::lookAgain() {
  release();
  update();
}

void LocationTracking::lookAgainLater() {
  nextAttempt_.schedule(times_.betweenAttempts, [this] { lookAgain(); });
}

// ---- The service

void LocationTracking::watchService() {
  watch_.emplace(connection_.get(), backend_.serviceName, G_BUS_NAME_WATCHER_FLAGS_AUTO_START,
                 mainRunLoop_->context(), weakly(*this, &LocationTracking::serviceAppeared),
                 weakly(*this, &LocationTracking::serviceVanished));
}

void LocationTracking::serviceAppeared(const char *owner) {
  nextAttempt_.cancel();
  endClient();
  owner_ = owner;
  answered_ = false;
  update();
}

void LocationTracking::serviceVanished() {
  // A service leaves when nobody needs it: what it has said before then still holds.
  const bool wasNeeded = client_ != nullptr;
  endClient();
  owner_.clear();
  if (wasNeeded || state_ != State::denied) lookAgainLater();
  if (wasNeeded) settle(State::notDetermined);
}

void LocationTracking::startClient(LinuxLocationManager &manager) {
  client_ = backend_.makeClient(connection_.get(), owner_, mainRunLoop_->context(), times_.betweenPositions,
                                strong(*this));
  answerOverdue_.schedule(times_.forAnswer, [this] { settle(State::notDetermined); });
  client_->start(desktopId_, distanceThreshold(manager.request().distanceFilter));
}

void LocationTracking::endClient() {
  answerOverdue_.cancel();
  paused_ = false;
  if (client_ != nullptr) std::exchange(client_, nullptr)->end();
}

void LocationTracking::settle(State state) {
  if (state_ == state) return;
  state_ = state;
  authorization_->set(state);
  if (const auto manager = manager_.lock()) manager->tellAuthorization(LocationAuthorization::status(state));
}

// ---- The client

void LocationTracking::clientStarted() {
  answerOverdue_.cancel();
  settle(State::authorized);
  update();  // whether or not positions are wanted, now that the delegate knows
}

void LocationTracking::clientRefused(LocationClient::Refusal refusal) {
  endClient();
  answered_ = true;
  const bool disabled = refusal == LocationClient::Refusal::disabled;
  if (disabled) lookAgainLater();
  settle(disabled ? State::disabled : State::denied);
}

void LocationTracking::clientFailed() {
  endClient();
  answered_ = true;
  lookAgainLater();
  settle(State::notDetermined);
}

void LocationTracking::clientPaused() {
  const auto manager = manager_.lock();
  if (manager == nullptr) return;
  paused_ = true;
  manager->tellPaused();
  stopsWhenPaused_ = manager->request().stops;
}

void LocationTracking::clientResumed() {
  const auto manager = manager_.lock();
  if (manager == nullptr) return;
  paused_ = false;
  manager->tellResumed();
  update();
}

void LocationTracking::clientFound(const Location &location) {
  if (const auto manager = manager_.lock()) manager->found(location);
}

}  // namespace kx
