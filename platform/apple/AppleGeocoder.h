#pragma once

#include "KXPublisher/platform/Geocoder.h"
#include "platform/apple/AppleDeprecated.h"

@class CLGeocoder;

namespace kx {

/// A CLGeocoder; a null pointer when the system has none.
std::shared_ptr<Geocoder> makeAppleGeocoder();

/// The system's object behind such a geocoder; nil for a null pointer, and for one of another platform. To
/// name CLGeocoder, deprecated since iOS 26, is no new use of it.
KX_DEPRECATED_BEGIN
CLGeocoder *_Nullable systemGeocoderOf(const std::shared_ptr<Geocoder> &geocoder);
KX_DEPRECATED_END

}  // namespace kx
