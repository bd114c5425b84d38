#pragma once

#include <sys/wait.h>
#include <unistd.h>

namespace kx {

/// What `count` returns in a child. It may call only what signal handlers may.
template <class Count>
int inForkedChild(Count count) {
  const pid_t child = fork();
  if (child == 0) _exit(count());
  int status = 0;
  return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace kx
