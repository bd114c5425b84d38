#include "platform/apple/AppleText.h"

namespace kx {

NSString *stringOf(const std::string &text) {
  return [[NSString alloc] initWithBytes:text.data() length:text.size() encoding:NSUTF8StringEncoding];
}

NSString *readableStringOf(const std::string &text) {
  if (NSString *const string = stringOf(text)) return string;
  NSString *const string = [[NSString alloc] initWithBytes:text.data()
                                                    length:text.size()
                                                  encoding:NSISOLatin1StringEncoding];
  return string != nil ? string : @"";
}

std::optional<std::string> textOf(NSString *string) {
  NSData *const utf8 = [string dataUsingEncoding:NSUTF8StringEncoding];
  if (utf8 == nil) return std::nullopt;
  if (utf8.length == 0) return std::string();
  return std::string(static_cast<const char *>(utf8.bytes), utf8.length);
}

}  // namespace kx
