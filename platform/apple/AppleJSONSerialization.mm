#import <Foundation/Foundation.h>

#include <utility>

#include "KXPublisher/platform/foundation/JSONSerialization.h"
#include "platform/apple/AppleText.h"

namespace kx {

namespace {

using TextConversion = NSString *_Nullable (*)(const std::string &text);

/// `value` as the system's own objects; nil when `convert` has nothing for one of its texts.
id objectOf(const Value &value, TextConversion convert) {
  if (value.text() != nullptr) return convert(*value.text());
  if (value.integer() != nullptr) return @(*value.integer());
  if (value.number() != nullptr) return @(*value.number());
  if (value.boolean() != nullptr) return @(*value.boolean());
  if (value.array() != nullptr) {
    NSMutableArray *const array = [[NSMutableArray alloc] init];
    for (const Value &element : *value.array()) {
      const id object = objectOf(element, convert);
      if (object == nil) return nil;
      [array addObject:object];
    }
    return array;
  }
  NSMutableDictionary *const dictionary = [[NSMutableDictionary alloc] init];
  for (const Dictionary::Entry &entry : *value.dictionary()) {
    NSString *const key = convert(entry.key);
    const id object = objectOf(entry.value, convert);
    if (key == nil || object == nil) return nil;
    [dictionary setObject:object forKey:key];
  }
  return dictionary;
}

/// JSON text with every "\/" as a plain slash. Escapes are read from the left, two characters each, so that a
/// real backslash, which is an escape by itself, stays where it is: before a slash, too.
std::string withPlainSlashes(std::string_view json) {
  std::string text;
  for (std::size_t next = 0; next < json.size(); ++next) {
    if (json[next] == '\\' && next + 1 < json.size()) {
      if (json[next + 1] != '/') text.push_back('\\');
      ++next;
    }
    text.push_back(json[next]);
  }
  return text;
}

std::optional<std::string> jsonOf(id object) {
  // What is not valid would raise.
  if (object == nil || ![NSJSONSerialization isValidJSONObject:object]) return std::nullopt;
  NSData *const data = [NSJSONSerialization dataWithJSONObject:object options:0 error:nullptr];
  if (data == nil) return std::nullopt;
  return withPlainSlashes({static_cast<const char *>(data.bytes), data.length});
}

}  // namespace

std::optional<std::string> JSONSerialization::dataWithJSONObject(const Value &object) {
  @autoreleasepool {
    return jsonOf(objectOf(object, stringOf));
  }
}

std::string JSONSerialization::descriptionOf(const Value &value) {
  @autoreleasepool {
    const id readable = objectOf(value, readableStringOf);
    auto json = jsonOf(readable);
    return json ? *std::move(json) : textOf([readable description]).value_or(std::string());
  }
}

}  // namespace kx
