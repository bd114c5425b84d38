#pragma once

namespace kx::standin {

/// Has Foundation insist as Apple's does: an NSRunLoop and the NSTimers on it are for their own thread only,
/// an NSURL is made of a text, and what is autoreleased has a pool. To be called once, before a test begins.
void watchFoundation();

}  // namespace kx::standin
