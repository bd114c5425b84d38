#pragma once

#include "KXPublisher/platform/Geocoder.h"

namespace kx {

/// A CLGeocoder; a null pointer when the system has none.
std::shared_ptr<Geocoder> makeAppleGeocoder();

}  // namespace kx
