#pragma once

#include <memory>
#include <optional>
#include <string>

#include "KXPublisher/platform/foundation/Object.h"
#include "KXPublisher/platform/foundation/Value.h"

namespace kx {

/// An installed application (NSBundle). May be asked from any thread.
class KX_EXPORT Bundle : public Object {
 public:
  /// `bundleIdentifier`: "com.example.App"; absent when the bundle has none.
  virtual std::optional<std::string> bundleIdentifier() = 0;

  /// `objectForInfoDictionaryKey:`: the value under `key` in the bundle's information list; absent when there
  /// is none. "CFBundleExecutable" is the name of the executable.
  virtual std::optional<Value> objectForInfoDictionaryKey(const std::string &key) = 0;
};

/// How bundles are found. May be asked from any thread.
class KX_EXPORT BundleService {
 public:
  virtual ~BundleService() = default;

  /// `mainBundle`: the host application's own bundle; a null pointer when the process has none.
  virtual std::shared_ptr<Bundle> mainBundle() = 0;

  /// `bundleWithIdentifier:`: the bundle registered under that identifier; a null pointer when there is none,
  /// or no identifier is given.
  virtual std::shared_ptr<Bundle> bundleWithIdentifier(const std::optional<std::string> &identifier) = 0;
};

}  // namespace kx
