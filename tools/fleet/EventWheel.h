#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "tools/fleet/FleetDevice.h"

namespace kx::fleet {

/// What is to happen to which device, in the order of time, of its phase, and then of scheduling. Far events
/// wait unsorted, together with all that fall into the same second or so; they are put into their places, one
/// a phase of each millisecond, when it is their second's turn. An event costs 8 bytes, wherever it waits.
class EventWheel {
 public:
  struct Event {
    std::uint32_t device;
    std::uint16_t place;  ///< in its window
    Happening happening;
    std::uint8_t number;  ///< of what it belongs to: a process, or a session
  };

  /// What happens at `end` or later is forgotten.
  explicit EventWheel(Time end) : end_(end), windows_(static_cast<std::size_t>(end >> windowBits) + 1) {}

  /// Not before what happens now.
  void schedule(Time at, Phase phase, std::uint32_t device, Happening happening, std::uint8_t number) {
    if (at >= end_) return;
    const auto offset = static_cast<unsigned>(at & (windowLength - 1));
    const Event event{device, static_cast<std::uint16_t>(offset << phaseBits | static_cast<unsigned>(phase)),
                      happening, number};
    const auto window = static_cast<std::size_t>(at >> windowBits);
    if (window == window_) {
      put(event);
    } else {
      windows_[window].push_back(event);
    }
  }

  /// Has everything happen: `handle(event, now)`, which may schedule more. `prepare(device)` is called some
  /// time before, a thousand events or so: early enough to fetch the device's memory.
  template <class Prepare, class Handle>
  void run(Prepare &&prepare, Handle &&handle) {
    runUntil(end_, prepare, handle);
  }

  /// The same with all that is due before `until`. The next call goes on from there, and what is scheduled
  /// between the two is not due before that.
  template <class Prepare, class Handle>
  void runUntil(Time until, Prepare &&prepare, Handle &&handle) {
    while (reached_ < std::min(until, end_)) {
      const auto window = static_cast<std::size_t>(reached_ >> windowBits);
      const auto begins = static_cast<Time>(window << windowBits);
      const Time stop = std::min({until, end_, begins + windowLength});
      if (window != window_ && windows_[window].empty()) {
        reached_ = stop;
        continue;
      }
      if (window != window_) enter(window, prepare);
      const auto last = static_cast<std::size_t>(stop - begins) << phaseBits;
      for (auto place = static_cast<std::size_t>(reached_ - begins) << phaseBits; place < last; ++place) {
        for (std::uint32_t next = places_[place].first; next != nothing; next = waiting_[next].next) {
          const Event event = waiting_[next].event;
          handle(event, begins + static_cast<Time>(place >> phaseBits));
        }
        places_[place] = {};
      }
      reached_ = stop;
    }
  }

 private:
  static constexpr unsigned windowBits = 10;
  static constexpr Time windowLength = 1 << windowBits;  // milliseconds
  static constexpr unsigned phaseBits = 2;
  static constexpr std::uint32_t nothing = UINT32_MAX;

  struct Waiting {
    Event event;
    std::uint32_t next;
  };
  struct Place {
    std::uint32_t first = nothing;
    std::uint32_t last = nothing;
  };

  template <class Prepare>
  void enter(std::size_t window, Prepare &prepare) {
    window_ = window;
    const std::vector<Event> events = std::exchange(windows_[window], {});
    waiting_.clear();
    for (const Event &event : events) {
      put(event);
      prepare(event.device);
    }
  }

  void put(const Event &event) {
    const auto added = static_cast<std::uint32_t>(waiting_.size());
    waiting_.push_back({event, nothing});
    Place &place = places_[event.place];
    if (place.first == nothing) {
      place.first = added;
    } else {
      waiting_[place.last].next = added;
    }
    place.last = added;
  }

  const Time end_;
  std::vector<std::vector<Event>> windows_;
  Time reached_ = 0;               ///< what is due before has happened
  std::size_t window_ = SIZE_MAX;  ///< the one whose turn it is
  std::vector<Waiting> waiting_;
  std::array<Place, std::size_t{1} << (windowBits + phaseBits)> places_{};
};

}  // namespace kx::fleet
