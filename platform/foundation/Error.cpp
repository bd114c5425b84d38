#include "KXPublisher/platform/foundation/Error.h"

#include "KXPublisher/platform/foundation/StringFormat.h"

namespace kx {

std::string Error::description() const {
  return stringWithFormat("Error Domain=%@ Code=%ld \"%@\"", {domain, code, localizedDescription});
}

}  // namespace kx
