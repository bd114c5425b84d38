#pragma once

#import <CoreTelephony/CTCarrier.h>

NS_ASSUME_NONNULL_BEGIN

API_AVAILABLE(ios(4.0))
@interface CTTelephonyNetworkInfo : NSObject

// One subscription.
@property(readonly, retain, nullable) CTCarrier *subscriberCellularProvider API_DEPRECATED("", ios(4.0, 12.0))
    ;
@property(nonatomic, copy, nullable) void (^subscriberCellularProviderDidUpdateNotifier)(CTCarrier *carrier)
    API_DEPRECATED("", ios(4.0, 12.0));
@property(nonatomic, readonly, retain, nullable)
    NSString *currentRadioAccessTechnology API_DEPRECATED("", ios(7.0, 12.0));

// Several, by the identifiers of their services.
@property(readonly, retain, nullable)
    NSDictionary<NSString *, CTCarrier *> *serviceSubscriberCellularProviders API_DEPRECATED("",
                                                                                             ios(12.0, 16.0));
@property(nonatomic, copy, nullable) void (^serviceSubscriberCellularProvidersDidUpdateNotifier)
    (NSString *service) API_DEPRECATED("", ios(12.0, 16.0));
@property(nonatomic, readonly, retain, nullable)
    NSDictionary<NSString *, NSString *> *serviceCurrentRadioAccessTechnology API_AVAILABLE(ios(12.0));
@property(nonatomic, readonly, nullable) NSString *dataServiceIdentifier API_AVAILABLE(ios(13.0));

@end

NS_ASSUME_NONNULL_END
