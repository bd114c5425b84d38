#pragma once

#include <memory>

#include "KXPublisher/platform/foundation/Object.h"

namespace kx {

/// An operation identifier: the keyword name of an operation that takes one object (the firing timer, the
/// posted notification), and the way to call it on a target. A default-constructed selector is null: it has
/// no name and calls nothing.
///
///     const Selector tick = Selector::of<&KXPublisher::logData>("logData:");
class Selector {
 public:
  Selector() = default;

  /// The selector of a member function `void (const std::shared_ptr<Argument> &)`. `name` is its keyword
  /// name, colon included, and must be a literal: it is not copied.
  template <auto Member>
  static Selector of(const char *name) {
    return Selector(name, performerOf<Member>(Member));
  }

  /// The keyword name as text; a null pointer for a null selector.
  const char *name() const { return name_; }
  explicit operator bool() const { return name_ != nullptr; }

  /// Calls the operation on `target`. Does nothing when the selector is null, or when the target has no such
  /// operation or takes another kind of argument.
  void perform(Object &target, const std::shared_ptr<Object> &argument) const {
    if (perform_ != nullptr) perform_(target, argument);
  }

 private:
  using Perform = void (*)(Object &target, const std::shared_ptr<Object> &argument);

  /// `member` is `Member`, from which its kinds are deduced.
  template <auto Member, class Target, class Argument>
  static Perform performerOf(void (Target::* /*member*/)(const std::shared_ptr<Argument> &)) {
    return [](Object &target, const std::shared_ptr<Object> &argument) {
      auto *const receiver = dynamic_cast<Target *>(&target);
      const auto received = std::dynamic_pointer_cast<Argument>(argument);
      const bool otherKind = argument != nullptr && received == nullptr;
      if (receiver != nullptr && !otherKind) (receiver->*Member)(received);
    };
  }

  Selector(const char *name, Perform action) : name_(name), perform_(action) {}

  const char *name_ = nullptr;
  Perform perform_ = nullptr;
};

}  // namespace kx
