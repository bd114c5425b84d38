#pragma once

#include <memory>
#include <string>

#include "KXPublisher/platform/foundation/Export.h"

namespace kx {

// The standard's base class has a destructor that is not virtual, and -Weffc++ in a host warns of that.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

/// The root of every class whose instances are shared: they are identified by their address, held by
/// `std::shared_ptr` and never copied.
class KX_EXPORT Object : public std::enable_shared_from_this<Object> {
 public:
  Object(const Object &) = delete;
  Object &operator=(const Object &) = delete;
  virtual ~Object();

  /// `description`: a text that tells this object from every other one alive. By default the class's name and
  /// the instance's address, "<KXDevice: 0x55d0c0ffee00>". May be called from any thread.
  virtual std::string description() const;

 protected:
  Object() = default;
};

#pragma GCC diagnostic pop

/// A strong reference to an object that is already shared; empty while it is being built or torn down.
template <class T>
std::shared_ptr<T> strong(T &object) {
  return std::static_pointer_cast<T>(object.weak_from_this().lock());
}

}  // namespace kx
