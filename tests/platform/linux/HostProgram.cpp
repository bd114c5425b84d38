#include <gio/gio.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "KXPublisher/KXPublisher.hpp"
#include "KXPublisher/platform/DispatchQueue.h"
#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/platform/linux/LinuxHost.h"
#include "KXPublisher/providers/KXAsn.h"
#include "KXPublisher/providers/KXDevice.h"
#include "platform/linux/LinuxPlatform.h"
#include "platform/linux/console/LinuxConsole.h"

// A host for tests that need a process of their own. Its argument says what it does.

#ifdef __has_feature
#if __has_feature(thread_sanitizer)
/// A daemon's parent ends in the middle of work: with a thread of curl's, too, that nobody has joined yet.
extern "C" const char *__tsan_default_options() {
  return "report_thread_leaks=0";
}
#endif
#endif

namespace {

using namespace kx;

pid_t processOfTheCall = 0;

int printALine() {
  std::setlocale(LC_ALL, "");  // in whose encoding GLib prints
  LinuxConsole().log("[KX Error] Br\u00f6tchen %s %d \u2603");
  return 0;
}

/// Has an object of static storage that is destroyed while the library works.
struct Static {
  ~Static() { destroyed = true; }
  std::atomic<bool> destroyed{false};
} objectOfTheHost;

int exitWithWork() {
  Dispatch &dispatch = Platform::current().dispatch();
  for (int i = 0; i < 1000; ++i) {
    for (const auto priority : {DispatchQueuePriority::background, DispatchQueuePriority::standard}) {
      dispatch.globalQueue(priority).async([&dispatch] {
        std::string text;
        while (text.size() < 10000 && !objectOfTheHost.destroyed) text += "work";
        dispatch.globalQueue(DispatchQueuePriority::low).async([] {});
        dispatch.mainQueue().async([] {});
      });
    }
  }
  dispatch.globalQueue(DispatchQueuePriority::standard).async([&dispatch] {
    dispatch.mainQueue().sync([] {});  // which nobody runs
  });
  g_main_context_iteration(nullptr, FALSE);  // lets the background work begin
  return 0;
}

bool hasFacts(const std::shared_ptr<KXData> &provider) {
  const auto data = provider->data();
  return data != nullptr && !data->contents()->empty();
}

int startTheLibrary() {
  g_set_prgname("linux-host");
  GApplication *const application = g_application_new("org.example.Host", G_APPLICATION_NON_UNIQUE);
  g_application_set_default(application);
  LinuxHostOptions options;
  options.advertisingIdentifier = "6d92078a-8246-4ba4-ae5b-76104861e7dc";
  options.advertisingTrackingEnabled = false;
  if (!LinuxHost::setOptions(options)) return 1;

  static GMainLoop *const loop = g_main_loop_new(nullptr, FALSE);
  g_idle_add(
      [](gpointer) -> gboolean {
        // Without a host name: no request leaves this process.
        KXPublisher::sharedInstanceWithApiToken("the API token", nullptr);
        return G_SOURCE_REMOVE;
      },
      nullptr);
  g_timeout_add(
      10,
      [](gpointer) -> gboolean {
        if (!hasFacts(KXDevice::sharedInstance()) || !hasFacts(KXAsn::sharedInstance()))
          return G_SOURCE_CONTINUE;
        g_main_loop_quit(loop);
        return G_SOURCE_REMOVE;
      },
      nullptr);
  g_main_loop_run(loop);
  const auto publisher = KXPublisher::sharedInstanceWithApiToken(nullptr, nullptr);
  std::printf("%s\n", publisher->description().c_str());
  g_main_loop_unref(loop);
  g_object_unref(application);
  return 0;
}

std::atomic<bool> hasWorked{false};

/// Does what hosts do, and runs the main loop until the library has done some work; in a forked child for a
/// while.
void runForAWhile(const std::shared_ptr<KXPublisher> &publisher) {
  static GMainLoop *const loop = g_main_loop_new(nullptr, FALSE);
  g_timeout_add(
      300,
      [](gpointer) -> gboolean {
        if (getpid() == processOfTheCall && !hasWorked) return G_SOURCE_CONTINUE;
        g_main_loop_quit(loop);
        return G_SOURCE_REMOVE;
      },
      nullptr);
  LinuxHost::didEnterBackground();
  LinuxHost::willEnterForeground();
  publisher->logData(nullptr);
  for (const auto &provider : publisher->dataProviders()) provider->updateData();
  Platform::current().dispatch().globalQueue(DispatchQueuePriority::standard).sync([] {});
  Platform::current().dispatch().globalQueue(DispatchQueuePriority::standard).async([] {
    if (getpid() != processOfTheCall) std::printf("work of a worker in the process that was forked\n");
  });
  Platform::current().dispatch().globalQueue(DispatchQueuePriority::background).async([] {
    std::printf("work in process %s\n", getpid() == processOfTheCall ? "of the call" : "that was forked");
    hasWorked = true;
  });
  g_main_loop_run(loop);
}

bool hasWorkers() {
  for (const auto &thread : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string name;
    std::getline(std::ifstream(thread.path() / "comm"), name);
    if (name.rfind("kx-", 0) == 0 && name != "kx-transport") return true;
  }
  return false;
}

/// Forks after the library's first call; the parent goes on, too, or it ends, as a daemon's does.
int fork(bool endsParent) {
  const auto publisher = KXPublisher::sharedInstanceWithApiToken("the API token", "collect.invalid");
  processOfTheCall = getpid();
  // The workers have ended, so that a child would have to make its own.
  while (g_main_context_iteration(nullptr, FALSE) != FALSE || hasWorkers()) {
  }
  Platform::current().dispatch().mainQueue().async([] {
    if (getpid() != processOfTheCall) std::printf("work of the loop in the process that was forked\n");
  });
  const pid_t child = ::fork();
  if (child == 0) {
    const auto allocated = mallinfo2().uordblks;
    for (int i = 0; i < 10'000; ++i) Platform::current().dispatch().mainQueue().async([i] { std::exit(i); });
    if (mallinfo2().uordblks > allocated + 10'000) std::printf("what is not done is kept\n");
    runForAWhile(publisher);
    std::fflush(stdout);
    _exit(3);
  }
  if (endsParent) _exit(0);
  int status = 0;
  if (waitpid(child, &status, 0) != child || WEXITSTATUS(status) != 3) return 1;
  runForAWhile(publisher);
  return 0;
}

}  // namespace

int main(int argumentsCount, char **arguments) {
  const std::string command = argumentsCount == 2 ? arguments[1] : "";
  if (command == "console") return printALine();
  if (command == "exit") return exitWithWork();
  if (command == "start") return startTheLibrary();
  if (command == "fork") return fork(false);
  if (command == "daemon") return fork(true);
  return 2;
}
