#pragma once
#pragma clang system_header  // for #include_next

// What an app needs of CoreLocation beyond what the library does.

#include_next <CoreLocation/CoreLocation.h>

@interface CLLocationManager (Asking)
- (void)requestWhenInUseAuthorization API_AVAILABLE(ios(8.0));
@end
