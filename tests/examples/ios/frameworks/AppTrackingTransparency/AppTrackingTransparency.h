#pragma once

#import <Foundation/Foundation.h>
#include <os/availability.h>

NS_ASSUME_NONNULL_BEGIN

typedef NSUInteger ATTrackingManagerAuthorizationStatus API_AVAILABLE(ios(14.0));

API_AVAILABLE(ios(14.0))
@interface ATTrackingManager : NSObject
+ (void)requestTrackingAuthorizationWithCompletionHandler:
    (void (^)(ATTrackingManagerAuthorizationStatus status))completion;
@end

NS_ASSUME_NONNULL_END
