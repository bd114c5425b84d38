#pragma once

// As much of CoreLocation as the library's headers for Objective-C name.

#import <Foundation/Foundation.h>

typedef struct {
  double latitude, longitude;
} CLLocationCoordinate2D;

typedef int CLAuthorizationStatus;

@interface CLLocation : NSObject
@end

@interface CLGeocoder : NSObject
@end

@interface CLPlacemark : NSObject
@end

@interface CLLocationManager : NSObject
@end

@protocol CLLocationManagerDelegate <NSObject>
@end
