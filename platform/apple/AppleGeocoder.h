#pragma once

#include "platform/Geocoder.h"

namespace kx {

/// A CLGeocoder; a null pointer when the system has none.
std::shared_ptr<Geocoder> makeAppleGeocoder();

}  // namespace kx
