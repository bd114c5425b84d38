#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>

#include "tests/platform/linux/stories/LinuxStory.h"
#include "tests/support/ChildProcess.h"
#include "tools/explore/ArgumentNumber.h"

namespace {

constexpr const char *usage =
    "usage: linux-stories [--stories N] [--first SEED]    plays so many stories, 20 unless told, each in a "
    "process of\n"
    "                                                     its own\n"
    "       linux-stories --replay SEED                   plays one in this process; 0: one in which nothing "
    "happens\n"
    "Lets the Linux device live through random stories, with its real threads, and holds the library "
    "against\n"
    "its promises. The first story that breaks one is printed; the exit code is 1 then, and 77 where the\n"
    "machine lets no story have a network of its own.\n";

constexpr int cannotBePlayed = 77;

constexpr std::chrono::seconds patience(120);  // with one story

int refuse() {
  std::fputs(usage, stderr);
  return 2;
}

kx::Story storyOf(long long seed) {
  return seed == 0 ? kx::Story() : kx::Story::ofSeed(static_cast<std::uint64_t>(seed));
}

/// What is left at the end goes to the standard output, where all promises are kept: the same for all
/// stories.
int replay(long long seed) {
  const kx::Story story = storyOf(seed);
  const kx::StoryEnd end = kx::playOnLinux(story);
  if (end.broken) {
    std::printf("broken: %s\n%slogged:\n%s", end.broken->c_str(), story.text().c_str(), end.log.c_str());
    return 1;
  }
  std::printf("at rest with %zu threads and %zu descriptors\n", end.threads, end.descriptors);
  return 0;
}

/// Plays a story in a process of its own. What it says, if all is well.
std::optional<std::string> play(const std::string &program, long long seed) {
  kx::ChildProcess child({program, "--replay", std::to_string(seed)});
  const auto code = child.exitCode(patience);
  if (code == 0 && child.errors().empty()) return child.output();
  if (code == cannotBePlayed) throw kx::NoNetwork(child.errors());
  std::printf("%s%s%s\nreplay: linux-stories --replay %lld\n", code ? "" : "broken: the story does not end\n",
              child.output().c_str(), child.errors().c_str(), seed);
  if (code != 1) std::printf("%s", storyOf(seed).text().c_str());  // which it has not printed itself
  return std::nullopt;
}

int playMany(const std::string &program, long long first, long long stories) {
  const auto began = std::chrono::steady_clock::now();
  const auto left = play(program, 0);
  if (!left) return 1;
  for (long long seed = first; seed < first + stories; ++seed) {
    const auto leaves = play(program, seed);
    if (!leaves) return 1;
    if (*leaves != *left) {
      std::printf("broken: %s, where nothing has happened %s%sreplay: linux-stories --replay %lld\n",
                  leaves->c_str(), left->c_str(), storyOf(seed).text().c_str(), seed);
      return 1;
    }
  }
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
  std::printf("%lld stories, %.1f s: all promises are kept\n", stories, took.count());
  return 0;
}

}  // namespace

int main(int count, char **arguments) {
  long long stories = 20;
  long long first = 1;
  std::optional<long long> replayed;
  for (int next = 1; next < count;) {
    const std::string option = arguments[next++];
    if (option == "--help") {
      std::fputs(usage, stdout);
      return 0;
    }
    if (next == count) return refuse();
    const long long value = kx::numberOf(arguments[next++]);
    if (value < 0) return refuse();
    if (option == "--stories") {
      stories = value;
    } else if (option == "--first") {
      first = value;
    } else if (option == "--replay") {
      replayed = value;
    } else {
      return refuse();
    }
  }
  if (stories < 1 || first < 1) return refuse();
  try {
    return replayed ? replay(*replayed) : playMany("/proc/self/exe", first, stories);
  } catch (const kx::NoNetwork &reason) {
    std::fprintf(stderr, "%s\n", reason.what());
    return cannotBePlayed;
  } catch (const std::exception &exception) {
    std::fprintf(stderr, "linux-stories: %s\n", exception.what());
    return 2;
  }
}
