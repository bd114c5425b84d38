#include "tests/platform/apple/harness/StandIn.h"

#include <pthread.h>

#include <condition_variable>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <utility>

#include "tests/platform/apple/harness/StandInDevice.h"

namespace kx::standin {

namespace {

struct Calls {
  int all = 0;
  int offMainThread = 0;
};

struct Record {
  std::mutex mutex;
  std::map<std::string, Calls> calls;
  std::set<std::string> raising;
  std::set<std::string> holding;
  std::condition_variable letGo;
  std::vector<std::string> complaints;
};

/// Whether the main thread runs its loop.
struct MainLoop {
  std::mutex mutex;
  std::condition_variable begins;
  bool runs = false;

  void set(bool nowRuns) {
    {
      const std::lock_guard<std::mutex> lock(mutex);
      runs = nowRuns;
    }
    begins.notify_all();
  }
};

MainLoop &mainLoop() {
  static auto *const mainLoop = new MainLoop;
  return *mainLoop;
}

Record &record() {
  static auto *const record = new Record;
  return *record;
}

Calls callsNoted(const std::string &operation) {
  const std::lock_guard<std::mutex> lock(record().mutex);
  return record().calls[operation];
}

bool runUntil(NSString *mode, const std::function<bool()> &condition) {
  const auto end = std::chrono::steady_clock::now() + patience();
  bool holds = condition();
  mainLoop().set(true);
  while (!holds && std::chrono::steady_clock::now() < end) {
    @autoreleasepool {
      NSDate *const soon = [NSDate dateWithTimeIntervalSinceNow:0.01];
      // It returns at once when it has nothing to wait for.
      if (![[NSRunLoop mainRunLoop] runMode:mode beforeDate:soon]) [NSThread sleepUntilDate:soon];
    }
    holds = condition();
  }
  mainLoop().set(false);
  return holds;
}

}  // namespace

void note(const char *operation) {
  bool raises = false;
  {
    std::unique_lock<std::mutex> lock(record().mutex);
    Calls &calls = record().calls[operation];
    ++calls.all;
    if (![NSThread isMainThread]) ++calls.offMainThread;
    record().letGo.wait(lock, [operation] { return record().holding.count(operation) == 0; });
    raises = record().raising.count(operation) != 0;
  }
  if (raises) [NSException raise:NSGenericException format:@"raised in %s", operation];
}

void raiseIn(const std::string &operation) {
  const std::lock_guard<std::mutex> lock(record().mutex);
  record().raising.insert(operation);
}

void holdIn(const std::string &operation) {
  const std::lock_guard<std::mutex> lock(record().mutex);
  record().holding.insert(operation);
}

void letGo(const std::string &operation) {
  {
    const std::lock_guard<std::mutex> lock(record().mutex);
    record().holding.erase(operation);
  }
  record().letGo.notify_all();
}

int callsOf(const std::string &operation) {
  return callsNoted(operation).all;
}

int callsOffMainThread(const std::string &operation) {
  return callsNoted(operation).offMainThread;
}

void complain(const std::string &what) {
  const std::lock_guard<std::mutex> lock(record().mutex);
  record().complaints.push_back(what);
}

std::vector<std::string> complaints() {
  const std::lock_guard<std::mutex> lock(record().mutex);
  return record().complaints;
}

std::chrono::seconds patience() {
  const char *const said = std::getenv("KX_TEST_PATIENCE");
  return std::chrono::seconds(said == nullptr ? 30 : std::atoi(said));
}

bool runMainLoopUntil(const std::function<bool()> &condition) {
  return runUntil(NSDefaultRunLoopMode, condition);
}

bool trackUntil(const std::function<bool()> &condition) {
  return runUntil(UITrackingRunLoopMode, condition);
}

void awaitMainLoop() {
  std::unique_lock<std::mutex> lock(mainLoop().mutex);
  mainLoop().begins.wait(lock, [] { return mainLoop().runs; });
}

void settleMainLoop() {
  bool reached = false;
  bool *const reachedHere = &reached;
  dispatch_async(dispatch_get_main_queue(), ^{
    *reachedHere = true;
  });
  runMainLoopUntil([&reached] { return reached; });
}

// Detached from the beginning: a thread that ends before it is detached counts as leaked at the process's
// end.
void runOnThreadOfItsOwn(std::function<void()> work) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_t thread;
  const auto run = [](void *data) -> void * {
    const std::unique_ptr<std::function<void()>> owned(static_cast<std::function<void()> *>(data));
    (*owned)();
    return nullptr;
  };
  auto owned = std::make_unique<std::function<void()>>(std::move(work));
  if (pthread_create(&thread, &attributes, run, owned.get()) == 0) owned.release();
  pthread_attr_destroy(&attributes);
}

}  // namespace kx::standin
