#pragma once

#import <Foundation/Foundation.h>
#include <os/availability.h>

NS_ASSUME_NONNULL_BEGIN

API_DEPRECATED("", ios(4.0, 16.0))
@interface CTCarrier : NSObject
@property(nonatomic, readonly, retain, nullable)
    NSString *mobileCountryCode API_DEPRECATED("", ios(4.0, 16.0));
@property(nonatomic, readonly, retain, nullable)
    NSString *mobileNetworkCode API_DEPRECATED("", ios(4.0, 16.0));
@end

NS_ASSUME_NONNULL_END
