#pragma once

#import <KXPublisher/KXPublisherClasses.h>

#include <memory>

#include "KXPublisher/publisher/KXLogger.h"
#include "KXPublisher/transport/KXNetworking.h"

NS_ASSUME_NONNULL_BEGIN

@interface KXNetworking ()
- (instancetype)initWithKXPublisherObject:(const std::shared_ptr<kx::KXNetworking> &)object;
- (const std::shared_ptr<kx::KXNetworking> &)kxPublisherObject;
@end

@interface KXLogger ()
- (instancetype)initWithKXPublisherObject:(const std::shared_ptr<kx::KXLogger> &)object;
- (const std::shared_ptr<kx::KXLogger> &)kxPublisherObject;
@end

NS_ASSUME_NONNULL_END
