#include "platform/apple/AppleConsole.h"

#import <Foundation/Foundation.h>

#include "platform/apple/AppleText.h"

namespace kx {

void AppleConsole::log(const std::string &line) {
  NSLog(@"%@", readableStringOf(line));
}

}  // namespace kx
