#pragma once

#import <Foundation/Foundation.h>

#include <memory>

#include "KXPublisher/platform/foundation/Object.h"

namespace kx {

/// The Objective-C object that stands for `object` where a framework asks for one, as the sender of a
/// notification. The same one as long as `object` lives, so that it can be told by its address; nil for a
/// null pointer. It does not keep `object` alive. May be called from any thread.
id _Nullable standInFor(const std::shared_ptr<Object> &object);

/// What `standIn` stands for; a null pointer when that is gone, or when `standIn` is no such object.
std::shared_ptr<Object> objectBehind(id _Nullable standIn);

}  // namespace kx
