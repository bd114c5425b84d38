#pragma once

#import <Foundation/Foundation.h>

#include <functional>
#include <string>

namespace kx {

/// What `work` raises, "NSRangeException: the reason"; empty when it raises nothing.
inline std::string raisedBy(const std::function<void()> &work) {
  NSException *raised = nil;
  try {
    work();
  } catch (id exception) {
    raised = exception;
  }
  if (raised == nil) return "";
  return std::string(raised.name.UTF8String) + ": " + raised.reason.UTF8String;
}

}  // namespace kx
