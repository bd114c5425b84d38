#include "platform/linux/https/CurlProcess.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <utility>
#include <vector>

namespace kx {

namespace {

constexpr std::chrono::seconds longestWait(1);  // of an exit, and of a fork

/// Never destroyed: threads that have stopped still refer to it.
struct State {
  std::atomic<pid_t> process{0};  ///< whose the threads are
  pthread_key_t threadEnd{};

  std::mutex mutex;  ///< guards what follows
  std::condition_variable changed;
  bool ending = false;
  int forks = 0;                                     ///< that wait, or go on
  int working = 0;                                   ///< threads that may hold a lock of TLS
  std::chrono::steady_clock::time_point waitsUntil;  ///< for the threads; set when the process is ending
  int threads = 0;                                   ///< that may use curl
  std::vector<CURLM *> watched;
};

State &state() {
  static State &state = *new State;
  return state;
}

void endWork() {
  const std::lock_guard<std::mutex> lock(state().mutex);
  --state().working;
  state().changed.notify_all();
}

void threadHasStopped() {
  const std::lock_guard<std::mutex> lock(state().mutex);
  --state().threads;
  state().changed.notify_all();
}

/// Keeps the mutex until the process has been forked: no thread begins to work before.
void prepareFork() {
  std::unique_lock<std::mutex> lock(state().mutex);
  ++state().forks;
  state().changed.wait_for(lock, longestWait, [] { return state().working == 0; });
  static_cast<void>(lock.release());
}

void endForkInParent() {
  --state().forks;
  state().mutex.unlock();
  state().changed.notify_all();
}

/// The threads, which may wait for the fork's end, are the parent's.
void endForkInChild() {
  state().mutex.unlock();
}

void stopThreadsAtExit() {
  // A forked child has the parent's state, but none of its threads.
  if (state().process != getpid()) return;
  std::unique_lock<std::mutex> lock(state().mutex);
  // Called more than once; the time is that of the first.
  if (!std::exchange(state().ending, true)) {
    state().waitsUntil = std::chrono::steady_clock::now() + longestWait;
  }
  for (CURLM *const multi : state().watched) curl_multi_wakeup(multi);
  state().changed.wait_until(lock, state().waitsUntil, [] { return state().threads == 0; });
}

/// The destructor of a value that every thread has. Those of one thread run in rounds, and TLS has one too,
/// in the first: this one waits for the second.
void threadEnds(void *value) {
  if (value == &state()) {
    pthread_setspecific(state().threadEnd, &state().threadEnd);
  } else {
    endWork();
    threadHasStopped();
  }
}

/// Has the threads stopped before TLS takes itself apart. OpenSSL does that in an exit handler of its own,
/// which it registers in the middle of its initialisation, but runs first what was given to `OPENSSL_atexit`,
/// the latest first. Looked up by name, because which TLS curl uses is curl's affair.
bool stopThreadsBeforeTLS() {
  using AtExit = int (*)(void (*)());
  const auto atExit = reinterpret_cast<AtExit>(CurlLibrary::symbol("OPENSSL_atexit"));
  return atExit == nullptr ? std::atexit(&stopThreadsAtExit) == 0 : atExit(&stopThreadsAtExit) == 1;
}

}  // namespace

bool CurlProcess::threadBegins() {
  static const bool prepared = pthread_key_create(&state().threadEnd, &threadEnds) == 0 &&
                               std::atexit(&stopThreadsAtExit) == 0 &&
                               pthread_atfork(&prepareFork, &endForkInParent, &endForkInChild) == 0;
  if (!prepared) return false;
  const std::lock_guard<std::mutex> lock(state().mutex);
  if (state().ending) return false;
  state().process = getpid();
  ++state().threads;
  return true;
}

void CurlProcess::threadFailed() {
  threadHasStopped();
}

bool CurlProcess::isEnding() {
  const std::lock_guard<std::mutex> lock(state().mutex);
  return state().ending;
}

void CurlProcess::beginWork() {
  {
    std::unique_lock<std::mutex> lock(state().mutex);
    state().changed.wait(lock, [] { return state().forks == 0; });
    if (!state().ending) {
      ++state().working;
      return;
    }
  }
  threadHasStopped();
  while (true) pause();
}

CurlProcess::Rest::Rest() {
  endWork();
}

CurlProcess::Rest::~Rest() {
  beginWork();
}

std::optional<std::string> CurlProcess::initialise() {
  pthread_setspecific(state().threadEnd, &state());
  if (auto missing = CurlLibrary::open()) return missing;
  static const CURLcode result = [] {
    // Before, for an exit while this goes on, and after, to come before what TLS itself registers on the way.
    const bool safeBefore = stopThreadsBeforeTLS();
    const CURLcode code = safeBefore ? curl_global_init(CURL_GLOBAL_DEFAULT) : CURLE_FAILED_INIT;
    return stopThreadsBeforeTLS() ? code : CURLE_FAILED_INIT;
  }();
  if (result != CURLE_OK) return curl_easy_strerror(result);
  return std::nullopt;
}

void CurlProcess::watch(CURLM *multi) {
  const std::lock_guard<std::mutex> lock(state().mutex);
  state().watched.push_back(multi);
}

void CurlProcess::unwatch(CURLM *multi) {
  const std::lock_guard<std::mutex> lock(state().mutex);
  auto &watched = state().watched;
  watched.erase(std::remove(watched.begin(), watched.end(), multi), watched.end());
}

}  // namespace kx
