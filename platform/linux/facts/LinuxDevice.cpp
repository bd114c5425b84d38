#include "platform/linux/facts/LinuxDevice.h"

#include <glib.h>

#include <sstream>

#include "platform/linux/facts/FlatpakSandbox.h"
#include "platform/linux/facts/SystemText.h"

namespace kx {

namespace {

enum Idiom : long { unspecified = -1, phone = 0, pad = 1 };

/// The chassis names that machine-info and the device tree share.
long idiomOfChassis(const std::string &chassis) {
  if (chassis == "handset") return phone;
  if (chassis == "tablet") return pad;
  return unspecified;
}

/// The chassis types of the SMBIOS standard. Convertible (31) and detachable (32) are laptops.
long idiomOfChassisType(const std::string &type) {
  if (type == "11") return phone;  // hand held
  if (type == "30") return pad;    // tablet
  return unspecified;
}

/// The value of a variable in a file of assignments that a shell could read, as os-release and machine-info
/// are. The last assignment counts; one that is not well-formed does not.
std::optional<std::string> assignedValue(const std::string &file, const std::string &variable) {
  const std::string assignment = variable + "=";
  std::optional<std::string> value;
  std::istringstream lines(file);
  for (std::string line; std::getline(lines, line);) {
    const auto text = trimmedText(line);
    if (!text || text->compare(0, assignment.size(), assignment) != 0) continue;
    gchar *const unquoted = g_shell_unquote(text->c_str() + assignment.size(), nullptr);
    if (unquoted == nullptr) continue;
    value = unquoted;
    g_free(unquoted);
  }
  return value ? validText(*std::move(value)) : std::nullopt;
}

}  // namespace

std::optional<std::string> LinuxDevice::read(const char *path) const {
  return readSmallFile(root_ + path);
}

std::optional<std::string> LinuxDevice::model() {
  for (const char *const path : {"/sys/class/dmi/id/product_name", "/proc/device-tree/model"}) {
    const auto file = read(path);
    auto name = file ? trimmedText(*file) : std::nullopt;
    if (name) return name;
  }
  return std::nullopt;
}

std::optional<std::string> LinuxDevice::systemRelease(const char *key) const {
  // In a Flatpak sandbox the usual files are those of the runtime that the application was built for.
  auto file = read(FlatpakSandbox::file) ? read("/run/host/os-release") : std::nullopt;
  if (!file) file = read("/etc/os-release");
  if (!file) file = read("/usr/lib/os-release");
  return file ? assignedValue(*file, key) : std::nullopt;
}

std::optional<std::string> LinuxDevice::systemName() {
  return systemRelease("NAME");
}

std::optional<std::string> LinuxDevice::systemVersion() {
  return systemRelease("VERSION_ID");
}

long LinuxDevice::userInterfaceIdiom() {
  if (const auto machineInfo = read("/etc/machine-info")) {
    if (const auto chassis = assignedValue(*machineInfo, "CHASSIS")) return idiomOfChassis(*chassis);
  }
  if (const auto file = read("/sys/class/dmi/id/chassis_type")) {
    if (const auto type = trimmedText(*file)) return idiomOfChassisType(*type);
  }
  if (const auto file = read("/proc/device-tree/chassis-type")) {
    if (const auto chassis = trimmedText(*file)) return idiomOfChassis(*chassis);
  }
  return unspecified;
}

}  // namespace kx
