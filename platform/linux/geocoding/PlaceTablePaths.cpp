#include "platform/linux/geocoding/PlaceTablePaths.h"

#include <dlfcn.h>

namespace kx {

namespace {

constexpr char insideTheLibrary = 0;

}  // namespace

std::vector<std::string> placeTablePaths() {
  std::vector<std::string> paths;
  Dl_info library{};
  if (dladdr(&insideTheLibrary, &library) != 0 && library.dli_fname != nullptr) {
    const std::string file = library.dli_fname;
    // An executable that was found through PATH goes by its name alone, which says nothing.
    if (const std::size_t slash = file.rfind('/'); slash != std::string::npos) {
      const std::string directory = file.substr(0, slash);
      paths.push_back(directory + "/../share/" KX_PLACES_FOLDER "/places");
      paths.push_back(directory + "/../../share/" KX_PLACES_FOLDER "/places");  // from lib/x86_64-linux-gnu
    }
  }
  paths.emplace_back(KX_INSTALLED_PLACES);
#ifdef KX_BUILT_PLACES
  paths.emplace_back(KX_BUILT_PLACES);
#endif
  return paths;
}

}  // namespace kx
