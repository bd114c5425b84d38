#pragma once

#import <Foundation/Foundation.h>

#include <memory>

#include "KXPublisher/platform/foundation/Object.h"

/// What stands for an object of the library's own.
@protocol KXPublisherStandIn <NSObject>
/// A null pointer when it is gone.
- (std::shared_ptr<kx::Object>)kxPublisherObject;
@end

namespace kx {

/// The Objective-C object that stands for `object` where a framework asks for one, as the sender of a
/// notification. The same one as long as `object` lives, so that it can be told by its address; nil for a
/// null pointer. It does not keep `object` alive. May be called from any thread.
id _Nullable standInFor(const std::shared_ptr<Object> &object);

/// What `standIn` stands for; a null pointer when that is gone, or when `standIn` is no such object.
std::shared_ptr<Object> objectBehind(id _Nullable standIn);

/// Lets objects that hosts know by a class of their own be stood for by it: nil for another object. To be set
/// while the program is loaded, by a part of the library that a host may do without.
using StandInMaker = id _Nullable (*_Nullable)(const std::shared_ptr<Object> &object);
void setStandInMaker(StandInMaker maker);

}  // namespace kx
