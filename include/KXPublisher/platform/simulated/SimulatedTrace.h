#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

#include "KXPublisher/platform/foundation/Export.h"

namespace kx {

/// What the threads of a simulated device did, one after the other. It is written while `recording` is set:
/// a schedule that fails is played again by its seed, and this time recorded.
class KX_EXPORT SimulatedTrace {
 public:
  enum class Kind {
    submits,    ///< a task is handed to a queue
    begins,     ///< a thread begins a task
    ends,       ///< ... and has ended it
    waits,      ///< it waits for another thread
    overtaken,  ///< another thread goes first
    goesOn,     ///< it goes on after that
    says,       ///< anything else: a call across the seam, a request, an answer, a line of the log
  };
  struct Event {
    double time;      ///< uptime in seconds
    unsigned thread;  ///< 0 for the main thread, otherwise the worker's number
    Kind kind;
    std::uint64_t task;  ///< the task's number; 0 where there is none
    std::string what;    ///< the queue, or what is said
  };

  bool recording = false;
  /// The latest events, at most this many.
  std::size_t limit = 100'000;

  const std::deque<Event> &events() const { return events_; }
  void add(Event event);
  void clear() { events_.clear(); }

  /// A line an event: when, on which thread, what.
  std::string text() const;
  /// The same as a picture: threads are lanes, what they run are bars, and an arrow leads from where a task
  /// was submitted to where it began. Time goes downwards, an event a row.
  std::string svg() const;

 private:
  std::deque<Event> events_{};
};

}  // namespace kx
