#include "benchmarks/Children.h"

#include <gio/gio.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

std::string outputOfChild() {
  const char *const arguments[] = {"/proc/self/exe", "--child", nullptr};
  char *output = nullptr;
  GError *error = nullptr;
  int status = 0;
  if (!g_spawn_sync(nullptr, const_cast<char **>(arguments), nullptr, G_SPAWN_STDERR_TO_DEV_NULL, nullptr,
                    nullptr, &output, nullptr, &status, &error) ||
      !g_spawn_check_wait_status(status, &error)) {
    throw std::runtime_error(std::string("child process: ") + error->message);
  }
  std::string text = output;
  g_free(output);
  return text;
}

int runParentOrChild(int argc, char **argv, const std::function<void(int count)> &parent,
                     const std::function<void()> &child, int defaultCount) {
  if (argc > 1 && std::strcmp(argv[1], "--child") == 0) {
    child();
    return 0;
  }
  const int count = argc > 1 ? static_cast<int>(std::strtol(argv[1], nullptr, 10)) : defaultCount;
  if (count <= 0) {
    std::fprintf(stderr, "usage: %s [number of process starts]\n", argv[0]);
    return 2;
  }
  parent(count);
  return 0;
}
