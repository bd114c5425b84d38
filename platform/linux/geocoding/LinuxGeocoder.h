#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "KXPublisher/platform/Clock.h"
#include "KXPublisher/platform/DispatchQueue.h"
#include "KXPublisher/platform/Geocoder.h"
#include "platform/linux/geocoding/MappedFile.h"
#include "platform/linux/geocoding/PlaceTable.h"

namespace kx {

/// Finds places on the device itself, in a table that was made from GeoNames' data: no position leaves it.
///
/// The place of a position is the nearest city within 50 km; docs/geocoding.md says why. Placemarks have the
/// country, the country's first-level division where it has one, the city and the offset of its time zone as
/// of now, absent when the system does not know that zone; never a postal code.
///
/// The table is mapped by the first lookup. Without one there are no places.
class LinuxGeocoder : public Geocoder {
 public:
  /// `tablePath`: a table of the host's own; absent for the one that comes with the library
  /// (`placeTablePaths`). Touches no file. Both services live as long as the process.
  LinuxGeocoder(Dispatch &dispatch, Clock &clock, std::optional<std::string> tablePath = std::nullopt);

  /// `reverseGeocodeLocation:completionHandler:`: calls the handler exactly once, with at most one place, on
  /// a worker of the global queue of low priority.
  void reverseGeocodeLocation(const Location &location, CompletionHandler completionHandler) override;

 private:
  std::optional<Placemark> placemarkAt(const LocationCoordinate &position);
  void openTable();

  Dispatch &dispatch_;
  Clock &clock_;
  const std::optional<std::string> tablePath_;
  std::once_flag tableOpened_;
  // Written while the table is opened, only read afterwards.
  std::unique_ptr<MappedFile> file_;
  std::optional<PlaceTable> table_;
};

}  // namespace kx
