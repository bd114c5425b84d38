#include "KXPublisher/platform/foundation/Object.h"

#include <cxxabi.h>

#include <cstdio>
#include <cstdlib>
#include <typeinfo>

namespace kx {

namespace {

/// The class's name as it is written, without its namespace.
std::string className(const Object &object) {
  const char *mangled = typeid(object).name();
  int status = 0;
  const std::unique_ptr<char, void (*)(void *)> demangled(
      abi::__cxa_demangle(mangled, nullptr, nullptr, &status), &std::free);
  const std::string name = status == 0 ? demangled.get() : mangled;
  const std::size_t scope = name.rfind("::");
  return scope == std::string::npos ? name : name.substr(scope + 2);
}

}  // namespace

Object::~Object() = default;

std::string Object::description() const {
  char address[2 + 2 * sizeof(void *) + 1];
  std::snprintf(address, sizeof address, "%p", static_cast<const void *>(this));
  return "<" + className(*this) + ": " + address + ">";
}

}  // namespace kx
