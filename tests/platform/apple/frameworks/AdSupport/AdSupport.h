#pragma once

#import <Foundation/Foundation.h>
#include <os/availability.h>

NS_ASSUME_NONNULL_BEGIN

API_AVAILABLE(ios(6.0))
@interface ASIdentifierManager : NSObject
+ (ASIdentifierManager *)sharedManager;
@property(nonatomic, readonly) NSUUID *advertisingIdentifier;
@property(nonatomic, readonly, getter=isAdvertisingTrackingEnabled)
    BOOL advertisingTrackingEnabled API_DEPRECATED("", ios(6.0, 14.0));
@end

NS_ASSUME_NONNULL_END
