#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

/// What all stand-ins of Apple's frameworks have in common. Each test is a process of its own, so nothing
/// here is ever set back.
namespace kx::standin {

/// Notes that an operation of a framework is called on this thread, and raises there if a test wants it to.
/// The operation is called by its compiler's name: "-[UIDevice model]".
void note(const char *operation);

/// From now on that operation raises an NSException.
void raiseIn(const std::string &operation);

/// From now on whoever calls that operation waits in it until `letGo`.
void holdIn(const std::string &operation);
void letGo(const std::string &operation);

/// How often the operation has been called, in all and on other threads than the main one.
int callsOf(const std::string &operation);
int callsOffMainThread(const std::string &operation);

/// Notes what no device puts up with, though it need not fail there and then. The test fails at its end.
void complain(const std::string &what);
std::vector<std::string> complaints();

/// For how long a busy machine may need: 30 seconds, or what KX_TEST_PATIENCE says.
std::chrono::seconds patience();

/// Runs the main run loop until `condition` holds; false when it never did. To be called on the main thread.
bool runMainLoopUntil(const std::function<bool()> &condition);
/// The same while the user drags something: the loop runs in the mode of tracking.
bool trackUntil(const std::function<bool()> &condition);

/// Runs everything that waits for the main thread already.
void settleMainLoop();
/// Runs everything that waits for a queue already, and what comes of it, whichever thread it is for.
void settleQueues();

/// Waits until the main thread runs its loop in one of these ways.
void awaitMainLoop();

/// What a system's call of the library is: nothing can be thrown through it.
template <class Call>
void callOut(Call &&call) noexcept {
  call();
}

/// Runs `work` on a new thread that nobody waits for, without an autorelease pool: a library brings its own.
void runOnThreadOfItsOwn(std::function<void()> work);

}  // namespace kx::standin
