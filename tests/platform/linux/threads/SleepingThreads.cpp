#include "tests/platform/linux/threads/SleepingThreads.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string_view>

#include "platform/linux/bus/FileDescriptor.h"

namespace kx {

namespace {

constexpr const char *taskFolder = "/proc/self/task";

/// Empty when the file is gone.
std::string contentsOf(const std::string &path) {
  const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.number() < 0) return {};
  std::array<char, 4096> chunk{};
  std::string text;
  for (ssize_t size = 0; (size = read(file.number(), chunk.data(), chunk.size())) > 0;)
    text.append(chunk.data(), static_cast<std::size_t>(size));
  return text;
}

/// The number behind a name in what the kernel says of a thread.
long numberAfter(std::string_view name, const std::string &text) {
  const std::size_t at = text.find(name);
  return at == std::string::npos ? 0 : std::strtol(text.c_str() + at + name.size(), nullptr, 10);
}

/// Whether the kernel has packets of the loopback interface in its hands, which it delivers later when it is
/// busy. It counts them by processor, in hexadecimal, in the twelfth column.
bool arePacketsOnTheirWay() {
  std::istringstream lines(contentsOf("/proc/net/softnet_stat"));
  for (std::string line; std::getline(lines, line);) {
    std::istringstream columns(line);
    std::string column;
    for (int i = 0; i < 12; ++i) columns >> column;
    if (columns && std::strtol(column.c_str(), nullptr, 16) != 0) return true;
  }
  return false;
}

}  // namespace

SleepingThreads::SleepingThreads(const std::vector<pid_t> &others) : folders_{taskFolder} {
  for (const pid_t process : others) folders_.push_back("/proc/" + std::to_string(process) + "/task");
}

bool SleepingThreads::allSleep() {
  if (arePacketsOnTheirWay()) return false;
  Sleeps first;
  Sleeps second;
  // Who slept both times, and has not fallen asleep in between, slept all the while.
  return look(first) && look(second) && first == second;
}

bool SleepingThreads::look(Sleeps &sleeps) const {
  const auto self = static_cast<pid_t>(syscall(SYS_gettid));
  for (const std::string &folder : folders_) {
    const std::unique_ptr<DIR, int (*)(DIR *)> threads(opendir(folder.c_str()), &closedir);
    if (threads == nullptr) continue;
    while (const dirent *const entry = readdir(threads.get())) {
      const auto thread = static_cast<pid_t>(std::strtol(entry->d_name, nullptr, 10));
      if (thread == 0 || thread == self) continue;
      const std::string status = contentsOf(folder + "/" + entry->d_name + "/status");
      if (status.find("\nState:\tS") == std::string::npos) return false;
      sleeps[thread] = numberAfter("\nvoluntary_ctxt_switches:", status) +
                       numberAfter("\nnonvoluntary_ctxt_switches:", status);
    }
  }
  return true;
}

}  // namespace kx
