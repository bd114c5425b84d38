#include "KXPublisher/providers/KXDevice.h"

#include <array>
#include <exception>
#include <vector>

#include "KXPublisher/platform/AdvertisingIdentifierManager.h"
#include "KXPublisher/platform/DispatchQueue.h"
#include "KXPublisher/platform/Locale.h"
#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/platform/SystemName.h"
#include "KXPublisher/platform/WebView.h"
#include "KXPublisher/platform/foundation/StringFormat.h"
#include "platform/foundation/SingleInstance.h"
#include "providers/Facts.h"

namespace kx {

using namespace constants;

std::shared_ptr<KXDevice> KXDevice::sharedInstance() {
  return singleInstance([] { return make<KXDevice>(); });
}

void KXDevice::instanceDidStartInit() {
  setCurrentDevice(Platform::current().devices().currentDevice());
}

std::shared_ptr<MutableDictionary> KXDevice::computeData() {
  Dictionary facts;
  setFact(facts, dataKeyDeviceType, deviceType());
  facts.set(dataKeyDeviceMake, dataValueDeviceMake);
  if (const auto device = currentDevice()) {
    setFact(facts, dataKeyDeviceModel, device->model());
    const auto systemName = device->systemName();
    setFact(facts, dataKeyOs, systemName);
    const auto systemVersion = device->systemVersion();
    if (systemName && systemVersion) {
      facts.set(dataKeyOsVersion, stringWithFormat("%@ %@", {systemName, systemVersion}));
    }
  }
  setFact(facts, dataKeyDeviceName, deviceName());
  setFact(facts, dataKeyUserAgent, userAgent());
  setFact(facts, dataKeyIfa, ifa());
  if (const auto value = dnt()) facts.set(dataKeyDnt, *value);
  if (auto value = languages(); value && !value->empty()) facts.set(dataKeyLanguages, *std::move(value));
  return std::make_shared<MutableDictionary>(std::move(facts));
}

std::optional<std::string> KXDevice::deviceType() {
  static constexpr std::array<const char *, 5> types{dataValueDeviceTypeUnspecified, dataValueDeviceTypePhone,
                                                     dataValueDeviceTypeTablet, dataValueDeviceTypeTv,
                                                     dataValueDeviceTypeCarplay};
  const auto device = currentDevice();
  if (device == nullptr) return std::nullopt;
  const long idiom = device->userInterfaceIdiom();
  const auto index = static_cast<unsigned long>(idiom) + 1;  // -1, unspecified, is the first one
  return index < types.size() ? types[index] : stringWithFormat("%ld", {idiom});
}

std::optional<std::string> KXDevice::deviceName() {
  return Platform::current().systemName().machine();
}

std::optional<std::string> KXDevice::userAgent() {
  std::optional<std::string> result;
  Platform &platform = Platform::current();
  std::exception_ptr thrown;
  platform.dispatch().mainQueue().sync([&platform, &result, &thrown] {
    try {
      if (const auto webView = platform.webViews().makeWebView()) {
        result = webView->stringByEvaluatingJavaScriptFromString("navigator.userAgent");
      }
    } catch (...) {
      thrown = std::current_exception();
    }
  });
  if (thrown != nullptr) std::rethrow_exception(thrown);
  return result;
}

std::optional<std::string> KXDevice::ifa() {
  const auto manager = Platform::current().advertising().sharedManager();
  return manager == nullptr ? std::nullopt : manager->advertisingIdentifier();
}

std::optional<std::int64_t> KXDevice::dnt() {
  const auto manager = Platform::current().advertising().sharedManager();
  if (manager == nullptr) return std::nullopt;
  return manager->isAdvertisingTrackingEnabled() ? 0 : 1;
}

std::optional<Array> KXDevice::languages() {
  const std::vector<std::string> preferred = Platform::current().locale().preferredLanguages();
  if (preferred.empty()) return std::nullopt;
  return Array(preferred.begin(), preferred.end());
}

}  // namespace kx
