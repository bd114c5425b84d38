#pragma once

#import <KXPublisher/KXPublisher.h>

#include <memory>

#include "KXPublisher/KXPublisher.hpp"  // the one for C++

NS_ASSUME_NONNULL_BEGIN

@interface KXPublisher ()
/// In front of that publisher; null when there was no memory for one.
- (instancetype)initWithKXPublisherObject:(const std::shared_ptr<kx::KXPublisher> &)object;
- (const std::shared_ptr<kx::KXPublisher> &)kxPublisherObject;
@end

NS_ASSUME_NONNULL_END
