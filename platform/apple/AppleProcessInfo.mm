#include "platform/apple/AppleProcessInfo.h"

#import <Foundation/Foundation.h>

#include "platform/apple/AppleText.h"

namespace kx {

std::string AppleProcessInfo::globallyUniqueString() {
  return textOf([[NSProcessInfo processInfo] globallyUniqueString]).value_or(std::string());
}

}  // namespace kx
