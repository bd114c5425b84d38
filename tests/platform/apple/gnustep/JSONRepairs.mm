// Where gnustep-base's NSJSONSerialization does otherwise than Apple's: it takes numbers that are not finite,
// puts a space behind each colon, and leaves slashes as they are, where Apple's writes "\/". Compiled without
// ARC.

#import <Foundation/Foundation.h>
#include <objc/runtime.h>

#include <cmath>
#include <string>

namespace {

using Validate = BOOL (*)(id, SEL, id);
using Serialise = NSData *(*)(id, SEL, id, NSJSONWritingOptions, NSError **);
Validate originalValidate;
Serialise originalSerialise;

bool isFinite(id object) {
  if ([object isKindOfClass:[NSNumber class]]) return std::isfinite([object doubleValue]);
  if ([object isKindOfClass:[NSDictionary class]]) object = [object allValues];
  if (![object isKindOfClass:[NSArray class]]) return true;
  for (id element in object) {
    if (!isFinite(element)) return false;
  }
  return true;
}

bool isContainer(id object) {
  return [object isKindOfClass:[NSDictionary class]] || [object isKindOfClass:[NSArray class]];
}

BOOL validate(id self, SEL selector, id object) {
  return isContainer(object) && isFinite(object) && originalValidate(self, selector, object);
}

NSData *serialise(id self, SEL selector, id object, NSJSONWritingOptions options, NSError **error) {
  if (!isContainer(object) || !isFinite(object)) {
    [NSException raise:NSInvalidArgumentException format:@"no valid JSON object"];
  }
  NSData *const data = originalSerialise(self, selector, object, options, error);
  if (data == nil) return nil;
  const char *const bytes = static_cast<const char *>([data bytes]);
  std::string text;
  bool quoted = false;
  for (NSUInteger next = 0; next < [data length]; ++next) {
    const char character = bytes[next];
    if (!quoted && character == ' ') continue;
    if (character == '"') quoted = !quoted;
    if (character == '/') text += '\\';
    text += character;
    if (character == '\\') text += bytes[++next];
  }
  return [NSData dataWithBytes:text.data() length:text.size()];
}

template <class Implementation>
void replace(SEL selector, Implementation implementation, Implementation &original) {
  Method const method = class_getClassMethod([NSJSONSerialization class], selector);
  original = reinterpret_cast<Implementation>(
      method_setImplementation(method, reinterpret_cast<IMP>(implementation)));
}

}  // namespace

@interface KXJSONRepairsLoader : NSObject
@end

@implementation KXJSONRepairsLoader
+ (void)load {
  NSAutoreleasePool *const pool = [NSAutoreleasePool new];
  replace(@selector(isValidJSONObject:), validate, originalValidate);
  replace(@selector(dataWithJSONObject:options:error:), serialise, originalSerialise);
  [pool release];
}
@end
