#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "KXPublisher/platform/Device.h"
#include "KXPublisher/platform/foundation/AtomicProperty.h"
#include "KXPublisher/platform/foundation/Value.h"
#include "KXPublisher/providers/KXData.h"

namespace kx {

namespace constants {
inline constexpr const char *dataKeyDeviceType = "deviceCategory";
inline constexpr const char *dataKeyDeviceMake = "make";
inline constexpr const char *dataKeyDeviceModel = "model";
inline constexpr const char *dataKeyOs = "platform";
inline constexpr const char *dataKeyOsVersion = "osVersion";
inline constexpr const char *dataKeyDeviceName = "name";
inline constexpr const char *dataKeyUserAgent = "userAgent";
inline constexpr const char *dataKeyIfa = "ifa";
inline constexpr const char *dataKeyDnt = "dnt";
inline constexpr const char *dataKeyLanguages = "languages";
inline constexpr const char *dataValueDeviceMake = "Apple";
inline constexpr const char *dataValueDeviceTypeUnspecified = "Unspecified";
inline constexpr const char *dataValueDeviceTypePhone = "Phone";
inline constexpr const char *dataValueDeviceTypeTablet = "Tablet";
inline constexpr const char *dataValueDeviceTypeTv = "TV";
inline constexpr const char *dataValueDeviceTypeCarplay = "CarPlay";
}  // namespace constants

/// Describes the device itself. Its facts are computed once in a process, by the refresh at its creation.
///
/// Each reader asks the platform afresh, and an absent answer leaves its key out. None but `deviceType`,
/// `ifa` and `dnt` may be called on the main thread; `userAgent`, and so `computeData`, would wait there for
/// itself.
class KX_EXPORT KXDevice : public KXData {
 public:
  /// `sharedInstance`
  static std::shared_ptr<KXDevice> sharedInstance();

  /// `needsMonitoring`: false.
  bool needsMonitoring() const override { return false; }
  /// `hasPermissions`: true, always.
  bool hasPermissions() override { return true; }
  /// `computeData`: the map of what the readers below return; "make" is always in it.
  std::shared_ptr<MutableDictionary> computeData() override;

  /// `deviceType`: the category of the user interface, an unknown one as its number; absent without a device.
  std::optional<std::string> deviceType();
  /// `deviceName`: the hardware identifier of `uname`.
  std::optional<std::string> deviceName();
  /// `userAgent`: what the system's web engine calls itself, asked in a fresh web view on the main thread
  /// while this thread waits. Not cached. Absent without a web engine.
  std::optional<std::string> userAgent();
  /// `ifa`: the advertising identifier as the platform gives it, the all-zero one included.
  std::optional<std::string> ifa();
  /// `dnt`: 1 when the user asked not to be tracked, otherwise 0.
  std::optional<std::int64_t> dnt();
  /// `languages`: the user's preferred languages, most wanted first; absent when there is none.
  std::optional<Array> languages();

  /// `currentDevice`: taken once, at creation.
  std::shared_ptr<Device> currentDevice() const { return currentDevice_.get(); }
  /// `setCurrentDevice:`
  void setCurrentDevice(std::shared_ptr<Device> currentDevice) {
    currentDevice_.set(std::move(currentDevice));
  }

 protected:
  KXDevice() = default;
  void instanceDidStartInit() override;

 private:
  friend class KXData;

  AtomicProperty<std::shared_ptr<Device>> currentDevice_;
};

}  // namespace kx
