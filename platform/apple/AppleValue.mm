#include "platform/apple/AppleValue.h"

#include <cstring>
#include <utility>

#include "platform/apple/AppleText.h"

namespace kx {

namespace {

/// Nil for a text that is not valid UTF-8.
id objectOf(const Value &value) {
  if (const auto *text = value.text()) return stringOf(*text);
  if (const auto *integer = value.integer()) return [NSNumber numberWithLongLong:*integer];
  if (const auto *number = value.number()) return [NSNumber numberWithDouble:*number];
  if (const auto *boolean = value.boolean()) return [NSNumber numberWithBool:*boolean];
  if (const auto *dictionary = value.dictionary()) return factsOf(*dictionary);
  NSMutableArray *const array = [NSMutableArray array];
  for (const Value &element : *value.array()) {
    id const object = objectOf(element);
    if (object != nil) [array addObject:object];
  }
  return array;
}

/// A boolean is known by its class, of which the system has one object for each of the two.
Value numberOf(NSNumber *number) {
  if ([number isKindOfClass:[[NSNumber numberWithBool:YES] class]]) return Value(number.boolValue != NO);
  const char *const type = number.objCType;
  if (std::strcmp(type, "d") == 0 || std::strcmp(type, "f") == 0) return Value(number.doubleValue);
  const long long integer = number.longLongValue;
  // Of the unsigned ones that have no signed counterpart the nearest double remains.
  if (std::strcmp(type, "Q") == 0 && integer < 0) return Value(number.doubleValue);
  return Value(integer);
}

Value arrayOf(NSArray *objects) {
  Array array;
  for (id object in objects) {
    if (auto value = valueOf(object)) array.push_back(*std::move(value));
  }
  return array;
}

}  // namespace

NSDictionary<NSString *, id> *factsOf(const Dictionary &dictionary) {
  NSMutableDictionary<NSString *, id> *const facts = [NSMutableDictionary dictionary];
  for (const auto &[key, value] : dictionary) {
    NSString *const name = stringOf(key);
    id const object = objectOf(value);
    if (name != nil && object != nil) [facts setObject:object forKey:name];
  }
  return facts;
}

NSDictionary<NSString *, id> *factsOf(const std::shared_ptr<MutableDictionary> &dictionary) {
  return dictionary == nullptr ? nil : factsOf(*dictionary->contents());
}

Dictionary dictionaryOf(NSDictionary *facts) {
  Dictionary dictionary;
  for (id key in facts) {
    if (![key isKindOfClass:[NSString class]]) continue;
    const auto name = textOf(static_cast<NSString *>(key));
    auto value = valueOf([facts objectForKey:key]);
    if (name && value) dictionary.set(*name, *std::move(value));
  }
  return dictionary;
}

std::optional<Value> valueOf(id object) {
  if ([object isKindOfClass:[NSString class]]) {
    auto text = textOf(static_cast<NSString *>(object));
    return text ? std::optional<Value>(*std::move(text)) : std::nullopt;
  }
  if ([object isKindOfClass:[NSNumber class]]) return numberOf(static_cast<NSNumber *>(object));
  if ([object isKindOfClass:[NSArray class]]) return arrayOf(static_cast<NSArray *>(object));
  if ([object isKindOfClass:[NSDictionary class]]) {
    return Value(dictionaryOf(static_cast<NSDictionary *>(object)));
  }
  return std::nullopt;
}

}  // namespace kx
