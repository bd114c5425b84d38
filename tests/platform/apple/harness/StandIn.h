#pragma once

#include <chrono>
#include <functional>
#include <string>

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

/// Runs the main run loop until `condition` holds, for as long as a busy machine may need; false when it
/// never did. To be called on the main thread.
bool runMainLoopUntil(const std::function<bool()> &condition,
                      std::chrono::seconds patience = std::chrono::seconds(30));
/// The same while the user drags something: the loop runs in the mode of tracking.
bool trackUntil(const std::function<bool()> &condition,
                std::chrono::seconds patience = std::chrono::seconds(30));

/// Runs everything that waits for the main thread already.
void settleMainLoop();

/// Waits until the main thread runs its loop in one of these ways.
void awaitMainLoop();

/// Runs `work` on a new thread that nobody waits for.
void runOnThreadOfItsOwn(std::function<void()> work);

}  // namespace kx::standin
