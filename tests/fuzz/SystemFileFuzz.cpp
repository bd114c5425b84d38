#include <array>
#include <filesystem>
#include <fstream>
#include <memory>

#include "platform/linux/facts/LinuxBundle.h"
#include "platform/linux/facts/LinuxDevice.h"
#include "tests/fuzz/Fuzzing.h"
#include "tests/support/ChildProcess.h"

// Whatever the system's own files hold, the device's facts are texts or absent.

namespace {

namespace fs = std::filesystem;

constexpr const char *identifier = "org.example.Host";
constexpr std::array<const char *, 7> files{"etc/os-release",
                                            "sys/class/dmi/id/product_name",
                                            "sys/class/dmi/id/chassis_type",
                                            "etc/machine-info",
                                            "sys/firmware/devicetree/base/model",
                                            "sys/firmware/devicetree/base/chassis-type",
                                            "share/applications/org.example.Host.desktop"};

void requireText(const std::optional<std::string> &text) {
  kx::require(!text || (!text->empty() && kx::isUTF8(*text)), "a fact is a text or absent");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  static const kx::TemporaryDirectory directory;
  const std::string root = directory.path() + '/';
  if (size == 0) return 0;
  // One of them, all others absent.
  const std::string file = root + files.at(bytes[0] % files.size());
  fs::create_directories(fs::path(file).parent_path());
  std::ofstream(file, std::ios::binary)
      .write(reinterpret_cast<const char *>(bytes) + 1, static_cast<std::streamsize>(size - 1));

  const auto device = std::make_shared<kx::LinuxDevice>(directory.path());
  requireText(device->model());
  requireText(device->systemName());
  requireText(device->systemVersion());
  const long idiom = device->userInterfaceIdiom();
  kx::require(idiom >= -1 && idiom <= 1, "an idiom is one that is known");
  const auto bundle = std::make_shared<kx::LinuxBundle>(
      identifier, kx::Environment({{"XDG_DATA_HOME", root + "share"}, {"XDG_DATA_DIRS", "/nowhere"}}));
  const auto executable = bundle->objectForInfoDictionaryKey("CFBundleExecutable");
  kx::require(!executable || executable->text() != nullptr, "an executable's name is a text");
  if (executable) requireText(*executable->text());
  fs::remove(file);
  return 0;
}
