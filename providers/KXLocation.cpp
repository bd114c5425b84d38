#include "KXPublisher/providers/KXLocation.h"

#include <utility>

#include "KXPublisher/platform/Application.h"
#include "KXPublisher/platform/LocationService.h"
#include "KXPublisher/platform/Platform.h"
#include "platform/foundation/SingleInstance.h"
#include "providers/Facts.h"

namespace kx {

using namespace constants;

namespace {

constexpr double distanceFilter = 10.0;  // metres

Dictionary positionFacts(const Location &location) {
  return {{dataKeyLocationLatitude, location.coordinate.latitude},
          {dataKeyLocationLongitude, location.coordinate.longitude},
          {dataKeyLocationHorizontalAccuracy, location.horizontalAccuracy},
          {dataKeyLocationAltitude, location.altitude},
          {dataKeyLocationVerticalAccuracy, location.verticalAccuracy}};
}

void addPlaceFacts(const Placemark &place, Dictionary &facts) {
  setFact(facts, dataKeyLocationCountry, place.ISOcountryCode);
  setFact(facts, dataKeyLocationState, place.administrativeArea);
  setFact(facts, dataKeyLocationCity, place.locality);
  setFact(facts, dataKeyLocationZip, place.postalCode);
  if (place.timeZoneSecondsFromGMT) facts.set(dataKeyLocationTimezone, *place.timeZoneSecondsFromGMT);
}

}  // namespace

std::shared_ptr<KXLocation> KXLocation::sharedInstance() {
  return singleInstance([] { return make<KXLocation>(); });
}

KXLocation::~KXLocation() {
  if (const auto manager = locationManager()) manager->stopUpdatingLocation();
}

bool KXLocation::hasPermissions() {
  LocationService &service = Platform::current().location();
  if (!service.locationServicesEnabled()) return false;
  return static_cast<unsigned>(service.authorizationStatus()) >
         static_cast<unsigned>(AuthorizationStatus::denied);
}

void KXLocation::instanceDidStartInit() {
  LocationService &service = Platform::current().location();
  const auto manager = service.makeLocationManager();
  locationManager_.set(manager);
  if (manager != nullptr) {
    manager->setDelegate(strong(*this));
    manager->setDistanceFilter(distanceFilter);
  }
  geocoder_.set(service.makeGeocoder());
  if (const auto permitted = permittedLocationManager()) permitted->startUpdatingLocation();
  whenApplicationPosts(UIApplicationDidEnterBackgroundNotification, [this] {
    if (const auto following = locationManager()) following->stopUpdatingLocation();
  });
  whenApplicationPosts(UIApplicationWillEnterForegroundNotification, [this] {
    const auto permitted = permittedLocationManager();
    if (permitted == nullptr) return;
    permitted->startUpdatingLocation();
    updateDataInBackground(/*ifPermitted=*/false);
  });
}

std::shared_ptr<LocationManager> KXLocation::permittedLocationManager() {
  return hasPermissions() ? locationManager() : nullptr;
}

std::shared_ptr<MutableDictionary> KXLocation::computeData() {
  const auto manager = locationManager();
  const auto location = manager == nullptr ? std::nullopt : manager->location();
  // Written so that an accuracy that is not a number counts as invalid too.
  if (!location || !(location->horizontalAccuracy >= 0.0)) return std::make_shared<MutableDictionary>();

  Dictionary position = positionFacts(*location);
  if (const auto geocoder = this->geocoder()) {
    geocoder->reverseGeocodeLocation(
        *location, [provider = strong(*this), position](const std::vector<Placemark> &placemarks) {
          if (placemarks.empty()) return;
          provider->asRequest(Request::update, [&] {
            Dictionary positionAndPlace = position;
            addPlaceFacts(placemarks.front(), positionAndPlace);
            provider->updateData(std::make_shared<MutableDictionary>(std::move(positionAndPlace)));
          });
        });
  }
  return std::make_shared<MutableDictionary>(std::move(position));
}

void KXLocation::locationManager(LocationManager & /*manager*/, AuthorizationStatus /*status*/) {
  if (const auto manager = permittedLocationManager()) {
    manager->startUpdatingLocation();
    updateData();
    return;
  }
  if (const auto manager = locationManager()) manager->stopUpdatingLocation();
  resetData();
}

void KXLocation::locationManager(LocationManager & /*manager*/, const std::vector<Location> & /*locations*/) {
  if (hasPermissions()) updateData();
}

void KXLocation::locationManagerDidPauseLocationUpdates(LocationManager & /*manager*/) {
  if (const auto manager = permittedLocationManager()) manager->stopUpdatingLocation();
  resetData();
}

void KXLocation::locationManagerDidResumeLocationUpdates(LocationManager & /*manager*/) {
  if (const auto manager = permittedLocationManager()) {
    manager->startUpdatingLocation();
    updateData();
  }
}

}  // namespace kx
