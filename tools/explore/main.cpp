#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "tools/explore/ArgumentNumber.h"
#include "tools/explore/Explorer.h"

namespace {

constexpr const char *usage =
    "usage: kx-explore [--schedules N] [--first SEED]     plays so many stories, 20000 unless told\n"
    "       kx-explore --replay SEED [--picture FILE]     plays one, shrunk if it breaks a promise, and "
    "tells what\n"
    "                                                     its threads did\n"
    "Lets devices live through random stories in random schedules, and holds the library against its "
    "promises. The\n"
    "first story that breaks one is shrunk to the fewest events and printed; the exit code is 1 then.\n";

int refuse() {
  std::fputs(usage, stderr);
  return 2;
}

int tellOf(const kx::Explorer &explorer, const kx::Story &story) {
  const kx::Story shrunk = explorer.shrink(story);
  const auto broken = explorer.play(shrunk);
  std::printf("broken: %s\n%sreplay: kx-explore --replay %llu\n", broken.value_or("no longer").c_str(),
              shrunk.text().c_str(), static_cast<unsigned long long>(story.seed));
  return 1;
}

int replay(std::uint64_t seed, const char *pictureFile) {
  const kx::Explorer explorer;
  kx::Story story = kx::Story::ofSeed(seed);
  const bool isBroken = explorer.play(story).has_value();
  if (isBroken) story = explorer.shrink(story);
  std::string trace;
  std::string picture;
  const auto broken = explorer.play(story, &trace, &picture);
  std::printf("%s%s%s\n", trace.c_str(), story.text().c_str(),
              broken ? ("broken: " + *broken).c_str() : "all promises are kept");
  if (pictureFile != nullptr) {
    std::ofstream file(pictureFile);
    if (!(file << picture)) {
      std::fprintf(stderr, "kx-explore: %s cannot be written\n", pictureFile);
      return 2;
    }
  }
  return broken ? 1 : 0;
}

int search(long long first, long long schedules) {
  const kx::Explorer explorer;
  const auto began = std::chrono::steady_clock::now();
  std::size_t events = 0;
  for (long long seed = first; seed < first + schedules; ++seed) {
    const kx::Story story = kx::Story::ofSeed(static_cast<std::uint64_t>(seed));
    events += story.events.size();
    if (explorer.play(story)) return tellOf(explorer, story);
  }
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
  std::printf("%lld schedules, %zu events, %.1f s: all promises are kept\n", schedules, events, took.count());
  return 0;
}

}  // namespace

int main(int count, char **arguments) {
  long long schedules = 20'000;
  long long first = 1;
  long long replayed = 0;
  const char *picture = nullptr;
  for (int next = 1; next < count;) {
    const std::string option = arguments[next++];
    if (option == "--help") {
      std::fputs(usage, stdout);
      return 0;
    }
    if (next == count) return refuse();
    const char *const value = arguments[next++];
    if (option == "--schedules") {
      schedules = kx::numberOf(value);
    } else if (option == "--first") {
      first = kx::numberOf(value);
    } else if (option == "--replay") {
      replayed = kx::numberOf(value);
      if (replayed == 0) return refuse();
    } else if (option == "--picture") {
      picture = value;
    } else {
      return refuse();
    }
  }
  // 0 is no seed: it stands for the order of first in, first out.
  if (schedules < 1 || first < 1 || replayed < 0 || (picture != nullptr && replayed == 0)) return refuse();
  if (replayed > 0) return replay(static_cast<std::uint64_t>(replayed), picture);

  return search(first, schedules);
}
