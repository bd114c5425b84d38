#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace kx::collector {

/// Finds out whether a stream really has what it says it has already. It may say so of a message that it has
/// only begun to store, and loses with the node that led.
///
/// All of it may be called on any thread.
class DuplicateCheck {
 public:
  /// The id of the message that the stream keeps by that number: an empty one when it keeps none, absent when
  /// it gives no answer. May wait, for a bounded time; is called on the check's own thread.
  using Read = std::function<std::optional<std::string>(std::uint64_t sequence)>;
  /// Is called once, on the check's own thread or at once.
  using Checked = std::function<void(bool isThere)>;

  explicit DuplicateCheck(Read read);
  /// What is not checked by then is not there, as far as is known.
  ~DuplicateCheck();
  DuplicateCheck(const DuplicateCheck &) = delete;
  DuplicateCheck &operator=(const DuplicateCheck &) = delete;

  /// `sequence` is the number by which the stream says it has the message; 0 for one that has none yet.
  void check(std::uint64_t sequence, std::string id, Checked checked);

 private:
  struct Doubt {
    std::uint64_t sequence = 0;
    std::string id;
    Checked checked;
  };

  void work();

  const Read read_;
  std::mutex mutex_;  // of all below
  std::condition_variable isWoken_;
  bool isEnding_ = false;
  std::deque<Doubt> doubts_;
  std::thread worker_;
};

}  // namespace kx::collector
