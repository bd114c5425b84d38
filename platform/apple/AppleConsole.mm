#include "platform/apple/AppleConsole.h"

#import <Foundation/Foundation.h>

#include "platform/apple/AppleText.h"

namespace kx {

void AppleConsole::log(const std::string &line) {
  NSString *message = stringOf(line);
  if (message == nil) {  // not UTF-8: each byte as a character of its own
    message = [[NSString alloc] initWithBytes:line.data()
                                       length:line.size()
                                     encoding:NSISOLatin1StringEncoding];
  }
  NSLog(@"%@", message);
}

}  // namespace kx
