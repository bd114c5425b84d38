#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <system_error>
#include <thread>

#include "platform/linux/https/CurlProcess.h"
#include "platform/linux/https/CurlURLSession.h"
#include "tests/platform/linux/https/InterposedCalls.h"
#include "tests/platform/linux/https/TestDispatch.h"

// A host application that ends while a request is somewhere on its way:
//
//     https-exiting-host <URL> <certificate authority file> <linger in ms> <when> <how>
//
// When: "told" (a byte comes on standard input), "resolving" (the host name is being looked up), "hanging"
// (the transport's thread has called something that never returns), "ending" (it has begun to end, and never
// comes to it), "answered", "initialising" (the
// initialisation of curl has begun), or a number of microseconds after the start; "answered+<number>" and
// "initialising+<number>" are that long after that. How: "return" from main, "exit",
// "exit-elsewhere" (on another thread), "exit-at-once" (which may not take its second), "_exit", "send" (a
// request during the exit), "send-across" (one that is begun before the exit, and gets no thread before it),
// "fork": children that the host forks exit, and then the host; or "fork-busily": so, while many requests are
// on their way, all of which have to end; or "fork-between": so, while of two threads one or the other always
// works with curl.
//
// The exit status is 7; 8 when the exit has taken more than its time; 9 when it has not waited for a thread
// that had not ended; 10 when TLS would have begun to end before its threads were stopped; 11
// when a request that comes during the exit is not failed; 12 when a forked child has not ended.

namespace {

constexpr int status = 7;

std::atomic<bool> answered{false};
bool isForkedChild = false;

template <class Condition>
void waitUntil(Condition condition) {
  while (!condition()) std::this_thread::sleep_for(std::chrono::microseconds(200));
}

void waitFor(const std::string &when) {
  if (when == "told") {
    char byte = 0;
    if (read(STDIN_FILENO, &byte, 1) != 1) std::abort();
    return;
  }
  if (when == "hanging" || when == "ending") return waitUntil([] { return kx::InterposedCalls::hangs(); });
  if (when == "resolving") return waitUntil([] { return kx::InterposedCalls::stalledResolutions() > 0; });
  std::string delay = when;
  const std::size_t plus = std::min(when.find('+'), when.size());
  if (when.compare(0, plus, "answered") == 0) waitUntil([] { return answered.load(); });
  if (when.compare(0, plus, "initialising") == 0) {
    while (!kx::InterposedCalls::initialisationHasBegun()) {  // without a sleep: it takes a millisecond
    }
  }
  if (when.find_first_of("0123456789") != 0) delay = plus < when.size() ? when.substr(plus + 1) : "0";
  const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(std::stol(delay));
  while (std::chrono::steady_clock::now() < end) {
  }
}

std::chrono::steady_clock::time_point forkTime;
std::chrono::steady_clock::time_point exitTime = std::chrono::steady_clock::time_point::max();
bool mayTakeItsSecond = true;
bool hasToWait = false;

bool exitsWithinRequest = false;
std::atomic<bool> hasToFail{false};
std::atomic<bool> failed{false};
std::atomic<int> ended{0};  ///< requests, but for the first

bool hasTransport() {
  std::error_code error;
  for (const auto &thread : std::filesystem::directory_iterator("/proc/self/task", error)) {
    std::string name;
    std::getline(std::ifstream(thread.path() / "comm"), name);
    if (name == "kx-transport") return true;
  }
  return false;
}

/// Asked when a request has been found to come in time, and before there is a thread for it.
std::shared_ptr<void> exitWhereWanted() {
  if (!exitsWithinRequest) return nullptr;
  std::thread([] { std::exit(status); }).detach();
  waitUntil([] { return kx::CurlProcess::isEnding(); });
  return nullptr;
}

/// Runs late in the exit, when TLS is no more.
void exitLate() {
  if (isForkedChild) {
    if (std::chrono::steady_clock::now() - forkTime > std::chrono::milliseconds(900)) _exit(1);
    return;
  }
  const auto taken = std::chrono::steady_clock::now() - exitTime;
  if (taken > std::chrono::milliseconds(mayTakeItsSecond ? 1900 : 900)) _exit(8);
  if (hasToWait && taken < std::chrono::milliseconds(900)) _exit(9);
  for (int i = 0; hasToFail && !failed; ++i) {
    if (i == 1000) _exit(11);
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  // Time enough for a thread that has not been stopped to fall over what is missing.
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
}

/// Forks some children, each of which has to end; one, at once, without having waited for threads that it
/// does not have, and without a fork that took longer than that. One of some, since any may have waited for
/// the processor.
int forkChildren(int count, std::chrono::milliseconds longestFork) {
  bool anyIsQuick = false;
  for (int i = 0; i < count; ++i) {
    const auto begin = std::chrono::steady_clock::now();
    const pid_t child = fork();
    forkTime = std::chrono::steady_clock::now();
    if (child == 0) {
      isForkedChild = true;
      alarm(20);
      std::exit(status);
    }
    int result = 0;
    waitpid(child, &result, 0);
    if (!WIFEXITED(result)) return 12;
    if (WEXITSTATUS(result) == status && forkTime - begin <= longestFork) anyIsQuick = true;
  }
  return anyIsQuick ? status : 1;
}

/// Two threads that take turns at curl: neither rests before the other works, unless that is kept from it.
void takeTurns() {
  static std::atomic<int> turn{0};
  for (int mine = 1; mine <= 2; ++mine) {
    if (!kx::CurlProcess::threadBegins()) std::abort();
    std::thread([mine] {
      kx::CurlProcess::beginWork();
      while (true) {
        turn = mine;
        const auto patience = std::chrono::steady_clock::now() + std::chrono::milliseconds(300);
        waitUntil([&] { return turn != mine || std::chrono::steady_clock::now() > patience; });
        const kx::CurlProcess::Rest rest;
      }
    }).detach();
  }
  waitUntil([] { return turn == 2; });
}

std::function<void()> sendAtExit;

}  // namespace

extern "C" {

// What the leak sanitizer asks.

const char *__lsan_default_suppressions();
const char *__lsan_default_suppressions() {
  return "leak:libcrypto.so";  // what is registered with OpenSSL while it ends, it does not free
}

int __lsan_is_turned_off();
int __lsan_is_turned_off() {
  return isForkedChild ? 1 : 0;  // it looks for the stacks of threads that only the parent has
}

}  // extern "C"

int main(int argc, char **argv) {
  if (argc != 6) return 2;
  std::atexit(&exitLate);
  std::atexit([] {
    if (sendAtExit) sendAtExit();
  });
  const std::string how = argv[5];
  const std::string when = argv[4];

  // As in a host, nothing of this is ever destroyed.
  static auto &dispatch = *new kx::TestDispatch();
  kx::CurlSettings settings;
  settings.certificateAuthorityFile = argv[2];
  settings.linger = std::chrono::milliseconds(std::stol(argv[3]));
  settings.heldByRequest = &exitWhereWanted;
  static auto &service = *new kx::CurlURLSessionService(dispatch, settings);
  kx::URLRequest request(kx::URL{argv[1]});
  request.HTTPMethod = "POST";
  if (when == "hanging") kx::InterposedCalls::hang();
  if (when == "ending") kx::InterposedCalls::hangAtThreadsEnd();
  const auto session = service.sessionWithDefaultConfiguration();
  session
      ->uploadTaskWithRequest(request, kx::Data{'{', '}'},
                              [](const auto &, const auto &) { answered = true; })
      ->resume();
  session->finishTasksAndInvalidate();

  waitFor(when);
  const bool isThereCurl = std::getenv("KX_TEST_CURL") == nullptr;
  if (isThereCurl && when == "answered" && !kx::InterposedCalls::firstAtExitIsTheLastToo()) return 10;
  // Without curl there is no thread that an exit could wait for, a second at the most.
  mayTakeItsSecond = isThereCurl && how != "exit-at-once";
  hasToWait = when == "ending";
  exitTime = std::chrono::steady_clock::now();
  if (how == "exit" || how == "exit-at-once") std::exit(status);
  if (how == "_exit") _exit(status);
  const auto send = [&request] {
    service.sessionWithDefaultConfiguration()
        ->uploadTaskWithRequest(request, kx::Data(),
                                [](const auto &, const auto &error) {
                                  if (error) failed = true;
                                  ++ended;
                                })
        ->resume();
  };
  if (how == "fork-between") takeTurns();
  if (how.compare(0, 4, "fork") == 0) {
    const int requests = how == "fork-busily" ? 2000 : 0;
    for (int i = 0; i < requests; ++i) send();
    const int result = forkChildren(5, std::chrono::milliseconds(when == "hanging" ? 1900 : 900));
    waitUntil([requests] { return ended == requests; });
    exitTime = std::chrono::steady_clock::now();
    return result;
  }
  if (how == "send") {
    sendAtExit = [&send] {
      send();
      waitUntil([] { return failed.load(); });
    };
    std::exit(status);
  }
  if (how == "send-across") {
    waitUntil([] { return !hasTransport(); });
    hasToFail = exitsWithinRequest = true;
    send();
    while (true) pause();
  }
  if (how == "exit-elsewhere") {
    std::thread([] { std::exit(status); }).detach();
    while (true) pause();
  }
  return status;
}
