#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "tools/fleet/ForecastCommand.h"
#include "tools/fleet/LoadCommand.h"

namespace {

struct Command {
  const char *name;
  const char *does;
  int (*run)(const std::vector<std::string> &arguments);
};

constexpr Command commands[] = {
    {"forecast", "what a service sees of a fleet, in virtual time", &kx::fleet::runForecast},
#ifdef KX_FLEET_MAKES_LOAD
    {"load", "the same in real time: their requests to a service that you own", &kx::fleet::runLoad},
#endif
};

constexpr int wrongUsage = 2;
constexpr int unexpected = 3;

void printUsage(std::FILE *file) {
  std::fputs("usage: kx-fleet COMMAND [ARGUMENT]...\n\nWhat a fleet of devices means to its service.\n\n",
             file);
  for (const Command &command : commands) std::fprintf(file, "  %-10s %s\n", command.name, command.does);
  std::fputs("\nkx-fleet COMMAND --help tells more of each.\n", file);
}

}  // namespace

int main(int count, char **arguments) {
  const std::vector<std::string> words(arguments + (count > 0 ? 1 : 0), arguments + count);
  if (!words.empty() && words[0] == "--help") {
    printUsage(stdout);
    return 0;
  }
  try {
    for (const Command &command : commands) {
      if (!words.empty() && words[0] == command.name) return command.run({words.begin() + 1, words.end()});
    }
  } catch (const std::exception &error) {
    std::fprintf(stderr, "kx-fleet: %s\n", error.what());  // no memory for so many devices, as a rule
    return unexpected;
  }
  printUsage(stderr);
  return wrongUsage;
}
