#undef _FORTIFY_SOURCE  // it takes a jump to another stack for an attack

#include "platform/simulated/SimulatedFiber.h"

#include <utility>

// Where there is no ucontext (Apple has retired it), a fiber is a thread that waits for its turn: the same,
// and far slower.
#if defined(__linux__) && !defined(KX_FIBERS_ARE_THREADS)
#include <cxxabi.h>
#include <ucontext.h>

#include <csetjmp>
#include <cstddef>
#include <cstdint>
#include <cstring>
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KX_ADDRESS_SANITIZER
#endif
#if __has_feature(thread_sanitizer)
#define KX_THREAD_SANITIZER
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define KX_ADDRESS_SANITIZER
#endif
#if defined(__SANITIZE_THREAD__)
#define KX_THREAD_SANITIZER
#endif
#ifdef KX_ADDRESS_SANITIZER
#include <sanitizer/common_interface_defs.h>
#endif
#ifdef KX_THREAD_SANITIZER
#include <sanitizer/tsan_interface.h>
// Not even their calls are noted: one that begins on one stack ends on another.
#ifdef __clang__
#define KX_SWITCHES __attribute__((disable_sanitizer_instrumentation))
#else
#define KX_SWITCHES __attribute__((no_sanitize("thread")))
#endif
#else
#define KX_SWITCHES
#endif
#else
#include <condition_variable>
#include <mutex>
#include <thread>
#endif

namespace kx {

#if defined(__linux__) && !defined(KX_FIBERS_ARE_THREADS)

namespace {

// As much as a worker thread of iOS has. Memory that no one touches costs nothing.
constexpr std::size_t stackSize = std::size_t{512} * 1024;

#if defined(KX_ADDRESS_SANITIZER) || defined(KX_THREAD_SANITIZER)
constexpr bool sanitized = true;
#else
constexpr bool sanitized = false;
#endif

/// Where a stack was left.
struct Place {
  ucontext_t context{};
  jmp_buf registers{};
  bool left = false;  ///< it is to be entered where `registers` say

  /// Leaves this stack here for that one, until somebody comes back. It is a jump, for changing contexts
  /// costs a system call; the sanitizers want that.
  KX_SWITCHES void leaveFor(Place &other) {
    if (sanitized) {
      swapcontext(&context, &other.context);
      return;
    }
    left = true;
    if (_setjmp(registers) == 0) {
      if (other.left) _longjmp(other.registers, 1);
      setcontext(&other.context);
    }
  }
};

/// The exceptions that are being thrown and handled: what __cxa_get_globals gives each thread.
struct Exceptions {
  void *caught = nullptr;
  unsigned int uncaught = 0;

  void save() { std::memcpy(this, abi::__cxa_get_globals(), sizeof *this); }
  void restore() const { std::memcpy(abi::__cxa_get_globals(), this, sizeof *this); }
};

}  // namespace

struct SimulatedFiber::Context {
  Context() : stack(new std::byte[stackSize]) {
    getcontext(&own.context);
    own.context.uc_stack.ss_sp = stack.get();
    own.context.uc_stack.ss_size = stackSize;
    own.context.uc_link = nullptr;
    const auto self = reinterpret_cast<std::uintptr_t>(this);
    // A function of a context takes numbers of type int.
    makecontext(&own.context, reinterpret_cast<void (*)()>(&Context::run), 2,
                static_cast<unsigned int>(self >> 16 >> 16), static_cast<unsigned int>(self));
#ifdef KX_THREAD_SANITIZER
    ownThread = __tsan_create_fiber(0);
#endif
  }

  ~Context() {
    ends = true;
    enter();  // the sanitizers want to see its end
#ifdef KX_THREAD_SANITIZER
    __tsan_destroy_fiber(ownThread);
#endif
  }

  KX_SWITCHES static void run(unsigned int high, unsigned int low) {
    const std::uintptr_t address = (static_cast<std::uintptr_t>(high) << 16 << 16) | low;
    auto &self = *reinterpret_cast<Context *>(address);  // NOLINT(performance-no-int-to-ptr): see makecontext
    self.arrived(nullptr);
    while (!self.ends) {
      self.work();
      self.work = nullptr;
      self.leave();
    }
    self.leaving(nullptr);
    self.own.leaveFor(self.owner);
  }

  /// From the owner into the fiber, and back when that leaves.
  KX_SWITCHES void enter() {
    Exceptions owners;
    owners.save();
    exceptions.restore();
#ifdef KX_ADDRESS_SANITIZER
    void *owners_stack = nullptr;
    __sanitizer_start_switch_fiber(&owners_stack, stack.get(), stackSize);
#endif
#ifdef KX_THREAD_SANITIZER
    ownerThread = __tsan_get_current_fiber();
    __tsan_switch_to_fiber(ownThread, 0);
#endif
    owner.leaveFor(own);
#ifdef KX_ADDRESS_SANITIZER
    __sanitizer_finish_switch_fiber(owners_stack, nullptr, nullptr);
#endif
    exceptions.save();
    owners.restore();
  }

  KX_SWITCHES void leave() {
    void *kept = nullptr;
    leaving(&kept);
    own.leaveFor(owner);
    arrived(kept);
  }

  KX_SWITCHES void leaving([[maybe_unused]] void **kept) {
#ifdef KX_ADDRESS_SANITIZER
    __sanitizer_start_switch_fiber(kept, ownerStack, ownerStackSize);
#endif
#ifdef KX_THREAD_SANITIZER
    __tsan_switch_to_fiber(ownerThread, 0);
#endif
  }

  KX_SWITCHES void arrived([[maybe_unused]] void *kept) {
#ifdef KX_ADDRESS_SANITIZER
    __sanitizer_finish_switch_fiber(kept, &ownerStack, &ownerStackSize);
#endif
  }

  const std::unique_ptr<std::byte[]> stack;
  Place own;
  Place owner;
  Exceptions exceptions;
  WorkItem work;
  bool ends = false;
#ifdef KX_ADDRESS_SANITIZER
  const void *ownerStack = nullptr;
  std::size_t ownerStackSize = 0;
#endif
#ifdef KX_THREAD_SANITIZER
  void *ownThread = nullptr;
  void *ownerThread = nullptr;
#endif
};

#else

struct SimulatedFiber::Context {
  ~Context() {
    ends = true;
    enter();
    thread.join();
  }

  void run() {
    await(true);
    while (!ends) {
      work();
      work = nullptr;
      leave();
    }
    hand(false);
  }

  void enter() {
    hand(true);
    await(false);
  }

  void leave() {
    hand(false);
    await(true);
  }

  void hand(bool toFiber) {
    {
      const std::lock_guard<std::mutex> lock(mutex);
      fibersTurn = toFiber;
    }
    changed.notify_all();
  }

  void await(bool forFiber) {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [&] { return fibersTurn == forFiber; });
  }

  std::mutex mutex;
  std::condition_variable changed;
  bool fibersTurn = false;
  WorkItem work;
  bool ends = false;
  std::thread thread{[this] { run(); }};  // last: it uses the rest
};

#endif

SimulatedFiber::SimulatedFiber() : context_(std::make_unique<Context>()) {}

SimulatedFiber::~SimulatedFiber() = default;

void SimulatedFiber::assign(WorkItem work) {
  context_->work = std::move(work);
}

bool SimulatedFiber::isIdle() const {
  return context_->work == nullptr;
}

void SimulatedFiber::resume() {
  context_->enter();
}

void SimulatedFiber::suspend() {
  context_->leave();
}

}  // namespace kx
