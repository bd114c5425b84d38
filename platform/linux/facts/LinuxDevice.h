#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "KXPublisher/platform/Device.h"

namespace kx {

/// The device as the system's own files describe it. Each answer is read afresh; making the object reads
/// nothing.
class LinuxDevice : public Device, public DeviceService {
 public:
  /// `root` is the directory that the files are looked for under; empty for the system's own.
  explicit LinuxDevice(std::string root = {}) : root_(std::move(root)) {}

  std::shared_ptr<Device> currentDevice() override { return strong(*this); }

  /// The firmware's product name: DMI's "product_name", or the device tree's "model".
  std::optional<std::string> model() override;
  /// NAME of the os-release file, "Debian GNU/Linux". In a Flatpak sandbox it is the system's own that
  /// counts, not that of the runtime, wherever the sandbox shows it.
  std::optional<std::string> systemName() override;
  /// VERSION_ID of the os-release file, "12"; rolling distributions have none.
  std::optional<std::string> systemVersion() override;
  /// 0 for a handset and 1 for a tablet, by the chassis that the administrator has set in machine-info, or
  /// the one that the firmware names (DMI, device tree); otherwise -1. A laptop is neither, even if its
  /// screen comes off.
  long userInterfaceIdiom() override;

 private:
  std::optional<std::string> read(const char *path) const;
  std::optional<std::string> systemRelease(const char *key) const;

  const std::string root_;
};

}  // namespace kx
