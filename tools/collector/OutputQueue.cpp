#include "tools/collector/OutputQueue.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string_view>
#include <utility>

namespace kx::collector {

namespace {

constexpr std::chrono::seconds patienceAtTheEnd{1};

/// False when nobody reads any more.
bool deliver(int descriptor, std::string_view text) {
  while (!text.empty()) {
    // As much as a pipe takes at once when it takes anything, so that little is under way when all has to
    // end.
    const ssize_t written = ::write(descriptor, text.data(), std::min<std::size_t>(text.size(), PIPE_BUF));
    if (written > 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno == EAGAIN) {
      pollfd ready{descriptor, POLLOUT, 0};
      poll(&ready, 1, -1);
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

}  // namespace

struct OutputQueue::Shared {
  Shared(int file, Notice told, std::size_t most)
      : descriptor(file), notice(std::move(told)), maximumSize(most) {}

  const int descriptor;
  const Notice notice;
  const std::size_t maximumSize;

  std::mutex mutex;
  std::condition_variable changed;
  std::deque<std::string> pieces;
  std::size_t size = 0;     // of all pieces, in bytes
  std::size_t leftOut = 0;  // pieces since the latest one that was taken
  bool isEnding = false;
  bool isDone = false;  // the thread's last word

  void add(std::string piece) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (isDone) return;
    // One that is longer than all that may wait goes alone.
    if (leftOut != 0 || (!pieces.empty() && size + piece.size() > maximumSize)) {
      ++leftOut;
      return;
    }
    size += piece.size();
    pieces.push_back(std::move(piece));
    changed.notify_all();
  }

  /// The next text to write; empty at the end.
  std::string next() {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [this] { return !pieces.empty() || leftOut != 0 || isEnding; });
    if (pieces.empty()) return leftOut == 0 ? std::string() : notice(std::exchange(leftOut, 0));
    std::string piece = std::move(pieces.front());
    pieces.pop_front();
    size -= piece.size();
    return piece;
  }
};

OutputQueue::OutputQueue(int descriptor, Notice notice, std::size_t maximumSize)
    : std::ostream(nullptr),
      shared_(std::make_shared<Shared>(descriptor, std::move(notice), maximumSize)),
      buffer_(shared_),
      writer_(writeAll, shared_) {
  rdbuf(&buffer_);
}

OutputQueue::~OutputQueue() {
  std::unique_lock<std::mutex> lock(shared_->mutex);
  shared_->isEnding = true;
  shared_->changed.notify_all();
  const bool done = shared_->changed.wait_for(lock, patienceAtTheEnd, [this] { return shared_->isDone; });
  lock.unlock();
  if (done) {
    writer_.join();
  } else {
    writer_.detach();
  }
}

void OutputQueue::writeAll(const std::shared_ptr<Shared> &shared) {
  for (std::string text = shared->next(); !text.empty(); text = shared->next()) {
    if (!deliver(shared->descriptor, text)) break;
  }
  const std::lock_guard<std::mutex> lock(shared->mutex);
  shared->isDone = true;
  shared->pieces.clear();
  shared->changed.notify_all();
}

OutputQueue::Buffer::int_type OutputQueue::Buffer::overflow(int_type character) {
  if (!traits_type::eq_int_type(character, traits_type::eof())) {
    piece_ += traits_type::to_char_type(character);
  }
  return traits_type::not_eof(character);
}

std::streamsize OutputQueue::Buffer::xsputn(const char *text, std::streamsize size) {
  piece_.append(text, static_cast<std::size_t>(size));
  return size;
}

int OutputQueue::Buffer::sync() {
  if (!piece_.empty()) shared_->add(std::exchange(piece_, {}));
  return 0;
}

}  // namespace kx::collector
