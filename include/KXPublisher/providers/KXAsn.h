#pragma once

#include <memory>

#include "KXPublisher/providers/KXData.h"

namespace kx {

namespace constants {
inline constexpr const char *dataKeyAsnBundleId = "bundleId";
inline constexpr const char *dataKeyAsnName = "asn";
}  // namespace constants

/// Identifies the host application: its bundle identifier and its executable's name. Computed once in a
/// process, by the refresh at its creation.
class KX_EXPORT KXAsn : public KXData {
 public:
  /// `sharedInstance`
  static std::shared_ptr<KXAsn> sharedInstance();

  /// `needsMonitoring`: false.
  bool needsMonitoring() const override { return false; }
  /// `hasPermissions`: true, always.
  bool hasPermissions() override { return true; }
  /// `computeData`: up to two keys; the executable is read from the bundle that the identifier leads to.
  std::shared_ptr<MutableDictionary> computeData() override;

 protected:
  KXAsn() = default;

 private:
  friend class KXData;
};

}  // namespace kx
