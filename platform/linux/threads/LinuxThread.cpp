#include "platform/linux/threads/LinuxThread.h"

#include <link.h>
#include <pthread.h>

#include <atomic>
#include <csignal>
#include <cstddef>
#include <initializer_list>

namespace kx {

namespace {

/// How many bytes a thread's variables take, at most: those of every library that is loaded when the first
/// one is started. What is loaded later than the program has its variables elsewhere, and some room is left
/// over. Reckoned once: to look at each library of a process costs about as much as to start a thread.
std::size_t sizeOfThreadVariables() {
  // Not under a guard, which would be waited for under the loader's lock where a library starts a thread as
  // it is loaded.
  static std::atomic<std::size_t> known{0};
  std::size_t size = known;
  if (size != 0) return size;
  dl_iterate_phdr(
      [](dl_phdr_info *library, std::size_t, void *sum) {
        for (int i = 0; i < library->dlpi_phnum; ++i) {
          const auto &segment = library->dlpi_phdr[i];
          if (segment.p_type == PT_TLS) *static_cast<std::size_t *>(sum) += segment.p_memsz + segment.p_align;
        }
        return 0;
      },
      &size);
  known = size;
  return size;
}

}  // namespace

int startDetachedThread(std::size_t stackSize, void *(*main)(void *), void *argument) noexcept {
  pthread_attr_t attributes;
  if (const int error = pthread_attr_init(&attributes)) return error;
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_attr_setstacksize(&attributes, stackSize + sizeOfThreadVariables());
  // Inherited by the thread, so that it never has another mask. Its own faults still reach the host's crash
  // reporter: blocked, they would end the process without it.
  sigset_t blocked;
  sigfillset(&blocked);
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS}) sigdelset(&blocked, fault);
  sigset_t before;
  pthread_sigmask(SIG_SETMASK, &blocked, &before);
  pthread_t thread{};
  const int error = pthread_create(&thread, &attributes, main, argument);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  pthread_attr_destroy(&attributes);
  return error;
}

}  // namespace kx
