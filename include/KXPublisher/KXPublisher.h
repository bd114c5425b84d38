#pragma once

/* The door for Objective-C and Swift. In C++ it is KXPublisher.hpp, in C KXConstants.h. */
#ifndef __OBJC__
#error "KXPublisher.h is for Objective-C and Swift: hosts in C++ include <KXPublisher/KXPublisher.hpp>."
#endif

#import <Foundation/Foundation.h>
#import <KXPublisher/KXPublisherConstants.h>

/* In Swift: may be used from any thread. */
#ifdef NS_SWIFT_SENDABLE
#define KX_SENDABLE NS_SWIFT_SENDABLE
#else
#define KX_SENDABLE
#endif

NS_ASSUME_NONNULL_BEGIN

/**
 * Reports the context in which the host application runs to a collection service.
 *
 * The host makes one call, on its main thread while it starts; from then on everything happens by itself:
 *
 *     [KXPublisher sharedInstanceWithApiToken:@"the API token" hostname:@"collect.example.com"];
 *     KXPublisher.sharedInstance(apiToken: "the API token", hostname: "collect.example.com")
 *
 * A report is made 5 s after that call, every 600 s in the foreground, on each entry into the background and
 * 5 s after each return to the foreground. One without a usable advertising identifier is dropped, and one
 * that cannot be delivered is lost. The library asks the user for nothing: it reports the location, say, only
 * where the host has obtained the user's permission.
 *
 * The first call may come from another thread as well. But the system reports locations, and the user's
 * answer about them, to the thread that made it: where that has no running run loop, like a dispatch queue's,
 * the library never hears of them, and of a changed connection only from the next return to the foreground
 * on.
 *
 * No failure reaches the host: nothing here raises, and all but `description` return at once. Everything may
 * be called from any thread.
 */
__attribute__((visibility("default"))) API_AVAILABLE(ios(9.0)) KX_SENDABLE @interface KXPublisher : NSObject

/**
 * The one publisher, made and started by the first call; later calls ignore their arguments.
 *
 * @param apiToken What the service knows the host by.
 * @param hostname The service's host name; it may carry a port, "localhost:8443".
 *
 * Neither argument is validated: with an absent one nothing will ever be sent.
 */
+ (KXPublisher *)sharedInstanceWithApiToken:(nullable NSString *)apiToken
                                   hostname:(nullable NSString *)hostname
    NS_SWIFT_NAME(sharedInstance(apiToken:hostname:));

/** Lets the library's log print every level, in the whole process. */
- (void)enableDebugging;

/** Back to errors only; they stay on. */
- (void)disableDebugging;

/**
 * Why messages arrive, or do not, and what to do about it, in plain words. May be asked at any time, before
 * the call above, too, and changes nothing. It names no token, identifier or position.
 */
@property(class, readonly, copy) NSString *diagnosis;

/** A message of what is known now, as text, for debugging. It is made anew at each call. */
@property(readonly, copy) NSString *description;

+ (instancetype)new NS_UNAVAILABLE;
- (instancetype)init NS_UNAVAILABLE;

@end

NS_ASSUME_NONNULL_END
