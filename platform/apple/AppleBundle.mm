#include "platform/apple/AppleBundle.h"

#import <Foundation/Foundation.h>

#include "platform/apple/AppleText.h"

namespace kx {

namespace {

class AppleBundle : public Bundle {
 public:
  explicit AppleBundle(NSBundle *bundle) : bundle_(bundle) {}

  std::optional<std::string> bundleIdentifier() override { return textOf(bundle_.bundleIdentifier); }

  std::optional<Value> objectForInfoDictionaryKey(const std::string &key) override {
    NSString *const name = stringOf(key);
    id const value = name == nil ? nil : [bundle_ objectForInfoDictionaryKey:name];
    if (![value isKindOfClass:[NSString class]]) return std::nullopt;
    const auto text = textOf(static_cast<NSString *>(value));
    return text ? std::optional<Value>(*text) : std::nullopt;
  }

 private:
  NSBundle *const bundle_;
};

std::shared_ptr<Bundle> bundleOf(NSBundle *bundle) {
  return bundle == nil ? nullptr : std::make_shared<AppleBundle>(bundle);
}

}  // namespace

std::shared_ptr<Bundle> AppleBundleService::mainBundle() {
  return bundleOf([NSBundle mainBundle]);
}

std::shared_ptr<Bundle> AppleBundleService::bundleWithIdentifier(
    const std::optional<std::string> &identifier) {
  NSString *const name = identifier ? stringOf(*identifier) : nil;
  return name == nil ? nullptr : bundleOf([NSBundle bundleWithIdentifier:name]);
}

}  // namespace kx
