// Lets `catch (id)` take the exceptions of GCC's Objective-C runtime, which to C++ are foreign ones.

#include <cxxabi.h>
#include <unwind.h>

#include <cstring>
#include <typeinfo>

namespace {

/// The type of every Objective-C object: what is thrown as one comes from the one foreign runtime that there
/// is.
class ObjectType : public std::type_info {
 public:
  ObjectType() : std::type_info("id") {}

  bool __do_catch(const std::type_info *thrown, void **, unsigned) const override {
    return *thrown == typeid(abi::__foreign_exception);
  }
};

bool isObjectiveC(const _Unwind_Exception &exception) {
  _Unwind_Exception_Class kind = 0;
  std::memcpy(&kind, "CJBOCUNG", sizeof kind);  // "GNUCOBJC" as a big-endian number
  return exception.exception_class == kind;
}

}  // namespace

extern "C" {

/// What the compiler names in such a handler.
ObjectType __objc_id_type_info;

void *__real___cxa_begin_catch(void *exception);

/// To C++ a foreign exception has no value; of the runtime's, the object follows the header.
void *__wrap___cxa_begin_catch(void *exception) {
  void *const value = __real___cxa_begin_catch(exception);
  auto *const header = static_cast<_Unwind_Exception *>(exception);
  return isObjectiveC(*header) ? *reinterpret_cast<void **>(header + 1) : value;
}
}
