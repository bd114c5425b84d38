#pragma once

#include "KXPublisher/platform/Geocoder.h"

@class CLGeocoder;

namespace kx {

/// A CLGeocoder; a null pointer when the system has none.
std::shared_ptr<Geocoder> makeAppleGeocoder();

/// The system's object behind such a geocoder; nil for a null pointer, and for one of another platform.
CLGeocoder *_Nullable systemGeocoderOf(const std::shared_ptr<Geocoder> &geocoder);

}  // namespace kx
