#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace kx {

/// What the kernel says of a thread of this process, in /proc.
struct ThreadFacts {
  std::string name;     ///< as "top -H" shows it
  int niceValue = 0;    ///< 19 is the lowest priority
  std::string blocked;  ///< the signal mask in hexadecimal, signal 1 in the lowest bit

  static ThreadFacts ofCurrentThread() {
    const std::string directory = "/proc/self/task/" + std::to_string(syscall(SYS_gettid)) + "/";
    ThreadFacts facts;
    std::ifstream(directory + "comm") >> facts.name;

    std::string stat;
    std::getline(std::ifstream(directory + "stat"), stat);
    // Counted from behind the name, which may hold blanks: the state is field 3, the nice value 19.
    std::istringstream fields(stat.substr(stat.rfind(')') + 2));
    std::string field;
    for (int i = 3; i <= 19; ++i) fields >> field;
    facts.niceValue = std::stoi(field);

    std::ifstream status(directory + "status");
    for (std::string key; status >> key;) {
      if (key == "SigBlk:") status >> facts.blocked;
    }
    return facts;
  }
};

/// How many threads the process has.
inline std::size_t threadsCount() {
  const std::filesystem::directory_iterator threads("/proc/self/task");
  return static_cast<std::size_t>(std::distance(begin(threads), end(threads)));
}

}  // namespace kx
