#pragma once

#import <Foundation/Foundation.h>
#include <os/availability.h>

NS_ASSUME_NONNULL_BEGIN

typedef double CLLocationDegrees;
typedef double CLLocationDistance;
typedef double CLLocationAccuracy;
typedef struct CLLocationCoordinate2D {
  CLLocationDegrees latitude;
  CLLocationDegrees longitude;
} CLLocationCoordinate2D;

typedef int CLAuthorizationStatus;
enum : int {
  kCLAuthorizationStatusNotDetermined = 0,
  kCLAuthorizationStatusRestricted = 1,
  kCLAuthorizationStatusDenied = 2,
  kCLAuthorizationStatusAuthorizedAlways = 3,
  kCLAuthorizationStatusAuthorizedWhenInUse = 4,
};

API_AVAILABLE(ios(2.0))
@interface CLLocation : NSObject
- (instancetype)initWithCoordinate:(CLLocationCoordinate2D)coordinate
                          altitude:(CLLocationDistance)altitude
                horizontalAccuracy:(CLLocationAccuracy)horizontalAccuracy
                  verticalAccuracy:(CLLocationAccuracy)verticalAccuracy
                         timestamp:(NSDate *)timestamp;
@property(readonly, nonatomic) CLLocationCoordinate2D coordinate;
@property(readonly, nonatomic) CLLocationDistance altitude;
@property(readonly, nonatomic) CLLocationAccuracy horizontalAccuracy;
@property(readonly, nonatomic) CLLocationAccuracy verticalAccuracy;
@end

API_DEPRECATED("", ios(5.0, API_TO_BE_DEPRECATED))
@interface CLPlacemark : NSObject
@property(nonatomic, readonly, copy, nullable) NSString *ISOcountryCode;
@property(nonatomic, readonly, copy, nullable) NSString *administrativeArea;
@property(nonatomic, readonly, copy, nullable) NSString *locality;
@property(nonatomic, readonly, copy, nullable) NSString *postalCode;
@property(nonatomic, readonly, copy, nullable)
    NSTimeZone *timeZone API_DEPRECATED("", ios(9.0, API_TO_BE_DEPRECATED));
@end

typedef void (^CLGeocodeCompletionHandler)(NSArray<CLPlacemark *> *_Nullable placemarks,
                                           NSError *_Nullable error);

API_DEPRECATED("", ios(5.0, 26.0))
@interface CLGeocoder : NSObject
- (void)reverseGeocodeLocation:(CLLocation *)location
             completionHandler:(CLGeocodeCompletionHandler)completionHandler
    API_DEPRECATED("", ios(5.0, 26.0));
@end

@class CLLocationManager;

@protocol CLLocationManagerDelegate <NSObject>
@optional
- (void)locationManager:(CLLocationManager *)manager
     didUpdateLocations:(NSArray<CLLocation *> *)locations API_AVAILABLE(ios(6.0));
- (void)locationManager:(CLLocationManager *)manager
    didChangeAuthorizationStatus:(CLAuthorizationStatus)status API_DEPRECATED("", ios(4.2, 14.0));
- (void)locationManagerDidChangeAuthorization:(CLLocationManager *)manager API_AVAILABLE(ios(14.0));
- (void)locationManagerDidPauseLocationUpdates:(CLLocationManager *)manager API_AVAILABLE(ios(6.0));
- (void)locationManagerDidResumeLocationUpdates:(CLLocationManager *)manager API_AVAILABLE(ios(6.0));
@end

API_AVAILABLE(ios(2.0))
@interface CLLocationManager : NSObject
+ (BOOL)locationServicesEnabled API_AVAILABLE(ios(4.0));
+ (CLAuthorizationStatus)authorizationStatus API_DEPRECATED("", ios(4.2, 14.0));
@property(nonatomic, readonly) CLAuthorizationStatus authorizationStatus API_AVAILABLE(ios(14.0));
@property(assign, nonatomic, nullable) id<CLLocationManagerDelegate> delegate;
@property(assign, nonatomic) CLLocationDistance distanceFilter;
@property(readonly, nonatomic, copy, nullable) CLLocation *location;
- (void)startUpdatingLocation;
- (void)stopUpdatingLocation;
@end

NS_ASSUME_NONNULL_END
