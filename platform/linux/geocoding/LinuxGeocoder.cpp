#include "platform/linux/geocoding/LinuxGeocoder.h"

#include <utility>
#include <vector>

#include "platform/linux/console/CallbackBoundary.h"
#include "platform/linux/geocoding/PlaceTablePaths.h"
#include "platform/linux/geocoding/TimeZoneOffset.h"

namespace kx {

namespace {

// A wrong country is worse than none. From here on the nearest city lies in another country than the position
// for one position on land in seventeen, in another state for one in six, and it is nobody's city any more.
constexpr double cutOff = 50000;  // metres

}  // namespace

LinuxGeocoder::LinuxGeocoder(Dispatch &dispatch, Clock &clock, std::optional<std::string> tablePath)
    : dispatch_(dispatch), clock_(clock), tablePath_(std::move(tablePath)) {}

// Low, not background: the next report wants the place.
void LinuxGeocoder::reverseGeocodeLocation(const Location &location, CompletionHandler completionHandler) {
  dispatch_.globalQueue(DispatchQueuePriority::low)
      .async([geocoder = strong(*this), position = location.coordinate,
              completionHandler = std::move(completionHandler)] {
        std::vector<Placemark> found;
        runAtBoundary([&] {
          if (auto placemark = geocoder->placemarkAt(position)) found.push_back(std::move(*placemark));
        });
        completionHandler(found);
      });
}

std::optional<Placemark> LinuxGeocoder::placemarkAt(const LocationCoordinate &position) {
  std::call_once(tableOpened_, [this] { openTable(); });
  if (!table_) return std::nullopt;
  auto place = table_->nearest(position, cutOff);
  if (!place) return std::nullopt;

  Placemark placemark;
  placemark.ISOcountryCode = std::move(place->country);
  placemark.administrativeArea = std::move(place->region);
  placemark.locality = std::move(place->name);
  placemark.timeZoneSecondsFromGMT = secondsFromGMT(place->timeZone, clock_.timeIntervalSince1970());
  return placemark;
}

void LinuxGeocoder::openTable() {
  const std::vector<std::string> paths =
      tablePath_ ? std::vector<std::string>{*tablePath_} : placeTablePaths();
  for (const std::string &path : paths) {
    auto file = MappedFile::open(path);
    if (file == nullptr) continue;
    table_ = PlaceTable::in(file->bytes(), file->size());
    if (!table_) continue;
    file_ = std::move(file);
    return;
  }
}

}  // namespace kx
