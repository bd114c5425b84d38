#pragma once

#import <Foundation/Foundation.h>

#include <memory>
#include <utility>

#include "KXPublisher/platform/foundation/Exceptions.h"
#include "KXPublisher/platform/foundation/Object.h"

// What the classes that hosts see in Objective-C have in common: each is the face of a class of the library.

namespace kx {

/// The face that `object` has now; nil when it has none. A face is not kept here.
id _Nullable knownFaceOf(const Object *_Nonnull object);
/// Makes `face` the object's face, unless another thread was quicker, and returns the one that it has.
id _Nonnull becomeFaceOf(const Object *_Nonnull object, id _Nonnull face);
/// To be told when a face goes.
void forgetFaceOf(const Object *_Nonnull object) noexcept;

/// The object that a face is in front of, and which it keeps alive. Empty in a face that was made by none of
/// its class's own ways.
template <class T>
class Behind {
 public:
  Behind() = default;
  Behind(const Behind &) = delete;
  Behind &operator=(const Behind &) = delete;
  ~Behind() {
    if (object_ != nullptr) forgetFaceOf(object_.get());
  }

  void set(const std::shared_ptr<T> &object) { object_ = object; }
  const std::shared_ptr<T> &get() const { return object_; }
  T *_Nullable operator->() const { return object_.get(); }
  explicit operator bool() const { return object_ != nullptr; }

 private:
  std::shared_ptr<T> object_;
};

/// The face of `object`, the same one as long as the host holds it; nil for a null pointer. May be called
/// from any thread.
template <class Face, class T>
Face *_Nullable faceOf(const std::shared_ptr<T> &object) {
  if (object == nullptr) return nil;
  id face = knownFaceOf(object.get());
  if (face == nil) face = becomeFaceOf(object.get(), [[Face alloc] initWithKXPublisherObject:object]);
  return static_cast<Face *>(face);
}

/// The same for a single instance, which is there as long as the process.
template <class Face, class T>
Face *_Nonnull faceOfInstance(const std::shared_ptr<T> &instance) {
  return static_cast<Face *_Nonnull>(faceOf<Face>(instance));
}

/// Calls the library, and raises what it throws for a programming error as the system has it.
template <class Operation>
auto raising(Operation &&operation) {
  NSString *name = nil;
  NSString *reason = nil;
  const auto note = [&](NSString *exceptionName, const std::exception &exception) {
    name = exceptionName;
    reason = [NSString stringWithUTF8String:exception.what()];
  };
  try {
    return operation();
  } catch (const InternalInconsistencyException &exception) {
    note(NSInternalInconsistencyException, exception);
  } catch (const UnrecognizedSelectorException &exception) {
    note(NSInvalidArgumentException, exception);
  } catch (const RangeException &exception) {
    note(NSRangeException, exception);
  }
  // clang-format off
  @throw [NSException exceptionWithName:name reason:reason userInfo:nil];
  // clang-format on
}

}  // namespace kx
