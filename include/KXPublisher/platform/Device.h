#pragma once

#include <memory>
#include <optional>
#include <string>

#include "KXPublisher/platform/foundation/Object.h"

namespace kx {

/// The device itself (UIDevice). Everything may be asked from any thread, except from the host's main thread:
/// an answer may need a file to be read.
class KX_EXPORT Device : public Object {
 public:
  /// `model`: what the maker calls this kind of device, "iPhone"; absent when unknown.
  virtual std::optional<std::string> model() = 0;

  /// `systemName`: the operating system's name, "iOS"; absent when unknown.
  virtual std::optional<std::string> systemName() = 0;

  /// `systemVersion`: the operating system's version, "12.4"; absent when unknown.
  virtual std::optional<std::string> systemVersion() = 0;

  /// `userInterfaceIdiom`: -1 unspecified, 0 phone, 1 pad, 2 TV, 3 CarPlay; a later system may know more.
  virtual long userInterfaceIdiom() = 0;
};

/// How the device is reached.
class KX_EXPORT DeviceService {
 public:
  virtual ~DeviceService() = default;

  /// `currentDevice`: always the same object; a null pointer when there is none. Returns at once, on any
  /// thread, whatever the device's own answers cost.
  virtual std::shared_ptr<Device> currentDevice() = 0;
};

}  // namespace kx
