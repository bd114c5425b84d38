#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <ostream>
#include <streambuf>
#include <string>
#include <thread>

namespace kx::collector {

/// A stream to a file descriptor that never makes its writer wait: a reader that pauses (a terminal that was
/// stopped, a full pipe) holds up a thread of its own.
///
/// Each flush ends a piece, which is written whole or not at all. What waits is bounded; pieces beyond that
/// are left out and counted, and the reader is told how many when it goes on. Nothing more is written once
/// the reader has gone.
class OutputQueue : public std::ostream {
 public:
  /// What the reader is told of `count` pieces that were left out, with the line's end.
  using Notice = std::function<std::string(std::size_t count)>;

  static constexpr std::size_t defaultMaximumSize = std::size_t{8} << 20;  // bytes

  /// The descriptor stays open.
  OutputQueue(int descriptor, Notice notice, std::size_t maximumSize = defaultMaximumSize);
  /// Gives the reader one second to take what is left.
  ~OutputQueue() override;
  OutputQueue(const OutputQueue &) = delete;
  OutputQueue &operator=(const OutputQueue &) = delete;

 private:
  struct Shared;

  class Buffer : public std::streambuf {
   public:
    explicit Buffer(std::shared_ptr<Shared> shared) : shared_(std::move(shared)) {}

   protected:
    int_type overflow(int_type character) override;
    std::streamsize xsputn(const char *text, std::streamsize size) override;
    int sync() override;

   private:
    const std::shared_ptr<Shared> shared_;
    std::string piece_;
  };

  static void writeAll(const std::shared_ptr<Shared> &shared);

  // The thread's, too: it outlives this object when the reader never goes on.
  const std::shared_ptr<Shared> shared_;
  Buffer buffer_;
  std::thread writer_;
};

}  // namespace kx::collector
