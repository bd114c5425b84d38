#pragma once

#import <KXPublisher/KXPublisherClasses.h>

#include <memory>

#include "KXPublisher/providers/KXData.h"

NS_ASSUME_NONNULL_BEGIN

@interface KXData ()
/// The face of a provider of the library's.
- (instancetype)initWithKXPublisherObject:(const std::shared_ptr<kx::KXData> &)object;
/// The library's provider: for one of the host's the one that stands for it.
- (const std::shared_ptr<kx::KXData> &)kxPublisherProvider;
@end

namespace kx {

/// The face of any provider, of the class that belongs to it: one of the host's is its own.
::KXData *_Nullable faceOfProvider(const std::shared_ptr<KXData> &provider);

}  // namespace kx

NS_ASSUME_NONNULL_END
