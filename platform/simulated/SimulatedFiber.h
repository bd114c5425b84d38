#pragma once

#include <memory>

#include "KXPublisher/platform/DispatchQueue.h"

namespace kx {

/// A simulated worker thread: a stack of its own, on which work runs in pieces. Between the pieces goes on
/// whoever resumed it; no two ever run at once. What is thrown on it, and what is being handled there, is its
/// own, as on a thread.
class SimulatedFiber {
 public:
  SimulatedFiber();
  /// It has to be idle: work that has begun is not torn off.
  ~SimulatedFiber();
  SimulatedFiber(const SimulatedFiber &) = delete;
  SimulatedFiber &operator=(const SimulatedFiber &) = delete;

  /// Gives it work, which must not throw, for the next `resume`. It has to be idle.
  void assign(WorkItem work);
  /// Whether its work has ended.
  bool isIdle() const;

  /// Goes on with the work until it ends or suspends itself. Not to be called by a fiber.
  void resume();
  /// Called within the work: returns to whoever resumed it, and here again at the next `resume`.
  void suspend();

 private:
  struct Context;

  const std::unique_ptr<Context> context_;
};

}  // namespace kx
