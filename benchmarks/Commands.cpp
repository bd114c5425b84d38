#include "benchmarks/Commands.h"

#include <glib-unix.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>

namespace {

struct Reading {
  const std::map<std::string, Command> &commands;
  GMainLoop *loop;
  std::string unread;
  double lastEnd = 0;  // of a command, by this thread's processor time in microseconds
  int exitCode = 0;
};

double microsecondsOf(int clock) {
  timespec time{};
  if (clock_gettime(static_cast<clockid_t>(clock), &time) != 0) std::abort();
  return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

double anonymousMemory() {
  std::ifstream file("/proc/self/smaps_rollup");
  for (std::string word; file >> word;) {
    double number = 0;
    if (word == "Anonymous:" && file >> number) return number;
  }
  std::abort();
}

double liveHeap() {
  const struct mallinfo2 all = mallinfo2();
  return static_cast<double>(all.uordblks) + static_cast<double>(all.hblkhd);
}

void carryOut(Reading &reading, const std::string &line, double loop) {
  std::istringstream text(line);
  std::vector<std::string> words;
  for (std::string word; text >> word;) words.push_back(word);
  if (words.empty()) return;
  if (words.front() == "quit") return g_main_loop_quit(reading.loop);
  if (words.front() == "loop") {
    tell("loop", loop);
  } else if (words.front() == "memory") {
    tell("anonymous", anonymousMemory());
    tell("heap", liveHeap());
  } else if (words.front() == "empty") {
    emptyCaches();
  } else {
    const auto command = reading.commands.find(words.front());
    if (command == reading.commands.end()) {
      std::fprintf(stderr, "unknown command: %s\n", words.front().c_str());
      reading.exitCode = 1;
      return g_main_loop_quit(reading.loop);
    }
    command->second({words.begin() + 1, words.end()});
  }
  std::puts("done");
  std::fflush(stdout);
}

gboolean read(gint descriptor, GIOCondition /*condition*/, gpointer data) {
  Reading &reading = *static_cast<Reading *>(data);
  const double loop = microsecondsOf(CLOCK_THREAD_CPUTIME_ID) - reading.lastEnd;
  std::array<char, 4096> chunk{};
  const ssize_t size = ::read(descriptor, chunk.data(), chunk.size());
  if (size <= 0) {
    g_main_loop_quit(reading.loop);
    return G_SOURCE_REMOVE;
  }
  reading.unread.append(chunk.data(), static_cast<std::size_t>(size));
  for (auto end = reading.unread.find('\n'); end != std::string::npos; end = reading.unread.find('\n')) {
    const std::string line = reading.unread.substr(0, end);
    reading.unread.erase(0, end + 1);
    carryOut(reading, line, loop);
  }
  reading.lastEnd = microsecondsOf(CLOCK_THREAD_CPUTIME_ID);
  return G_SOURCE_CONTINUE;
}

}  // namespace

int obey(const std::map<std::string, Command> &commands) {
  Reading reading{commands, g_main_loop_new(nullptr, FALSE), {}};
  g_unix_fd_add(STDIN_FILENO, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP), &read, &reading);
  g_main_loop_run(reading.loop);
  return reading.exitCode;
}

void tell(const std::string &name, double value) {
  std::printf("%s %.3f\n", name.c_str(), value);
}

void tellProcessorTime() {
  tell("processor", microsecondsOf(CLOCK_PROCESS_CPUTIME_ID));
}

double microseconds(int clock, const std::function<void()> &call) {
  const double begin = microsecondsOf(clock);
  call();
  return microsecondsOf(clock) - begin;
}

void emptyCaches() {
  constexpr std::size_t size = std::size_t{64} * 1024 * 1024;
  constexpr std::size_t line = 64;
  void *const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) std::abort();
  auto *const bytes = static_cast<volatile char *>(memory);
  for (std::size_t at = 0; at < size; at += line) bytes[at] = 1;
  munmap(memory, size);
}

void marked(const std::string &name, const std::function<void()> &call) {
  const std::string begin = "/nonexistent/begin " + name;
  const std::string end = "/nonexistent/end " + name;
  static_cast<void>(access(begin.c_str(), F_OK));
  call();
  static_cast<void>(access(end.c_str(), F_OK));
}
