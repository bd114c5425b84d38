#include "tools/collector/NATSStream.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <utility>

#include "tools/collector/NATSConnection.h"
#include "tools/collector/WaitingMessages.h"

namespace kx::collector {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds timeBetweenLooks{500};  // at a stream that is away
constexpr std::chrono::milliseconds timeBeforeAttempt{100};
constexpr std::chrono::seconds longestSleep{60};

/// Null when there is no memory.
NATSPointer<natsMsg> natsMessage(const StreamMessage &message) {
  natsMsg *raw = nullptr;
  if (natsMsg_Create(&raw, message.subject.c_str(), nullptr, message.payload.data(),
                     static_cast<int>(message.payload.size())) != NATS_OK) {
    return nullptr;
  }
  NATSPointer<natsMsg> made(raw);
  if (natsMsgHeader_Set(raw, headerOfMessageId, message.id.c_str()) != NATS_OK) return nullptr;
  for (const auto &[name, value] : message.headers) {
    if (natsMsgHeader_Set(raw, name.c_str(), value.c_str()) != NATS_OK) return nullptr;
  }
  return made;
}

std::size_t sizeInMemory(const StreamMessage &message) {
  constexpr std::size_t sizeOfRest = 1000;
  std::size_t size = message.subject.size() + message.id.size() + message.payload.size() + sizeOfRest;
  for (const auto &[name, value] : message.headers) size += name.size() + value.size();
  return size;
}

}  // namespace

class NATSStream::State : public NATSListener, public std::enable_shared_from_this<State> {
 public:
  State(const NATSStreamSettings &settings, StateChanged stateChanged)
      : settings_(settings),
        stateChanged_(std::move(stateChanged)),
        waiting_(
            {settings.timeout, settings.patience, settings.maximumWaiting, settings.maximumWaitingSize}) {}

  void start() {
    worker_ = std::thread([this] { work(); });
  }

  void end() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      isEnding_ = true;
    }
    isWoken_.notify_all();
    worker_.join();
    // The library may still be telling of a message.
    const std::lock_guard<std::mutex> telling(tellingMutex_);
    isOver_ = true;
    const std::lock_guard<std::mutex> lock(mutex_);
    waiting_.clear();
  }

  void publish(const StreamMessage &message, MessageStream::Acknowledged acknowledged) {
    const std::size_t size = sizeInMemory(message);
    std::unique_lock<std::mutex> lock(mutex_);
    std::string problem = statistics_.isReady ? waiting_.whyNot(size, Clock::now()) : "the stream is away";
    auto made = problem.empty() ? natsMessage(message) : nullptr;
    if (made == nullptr) {
      ++statistics_.turnedAway;
      lock.unlock();
      if (problem.empty()) problem = "there is no memory for the message";
      return acknowledged({problem});
    }
    waiting_.take(std::move(made), size, std::move(acknowledged), Clock::now());
    lock.unlock();
    isWoken_.notify_all();
  }

  StreamStatistics statistics() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    StreamStatistics all = statistics_;
    all.waiting = waiting_.count();
    all.waitingSize = waiting_.size();
    return all;
  }

  void replied(NATSPointer<natsMsg> message, const Reply &reply) override {
    std::unique_lock<std::mutex> lock(mutex_);
    const auto found = underWay_.find(message.get());
    if (found == underWay_.end()) return;
    const Id id = found->second;
    underWay_.erase(found);
    if (reply.isPassing) {
      waiting_.tryAgain(id, std::move(message), Clock::now() + timeBeforeAttempt);
      ++statistics_.repeated;
      hasChanged_ = true;
      lock.unlock();
      return isWoken_.notify_all();
    }
    auto ended = waiting_.end(id, Clock::now());
    if (!ended) return;
    if (reply.problem.empty()) {
      count(ended->time);
      if (reply.isDuplicate) ++statistics_.duplicates;
    } else {
      ++statistics_.failed;
    }
    lock.unlock();
    tell(ended->acknowledged, {reply.problem, reply.status});
  }

  void changed() override {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      hasChanged_ = true;
    }
    isWoken_.notify_all();
  }

 private:
  using Waiting = WaitingMessages<NATSPointer<natsMsg>>;
  using Id = Waiting::Id;

  void work() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!isEnding_) {
      const auto now = Clock::now();
      if ((hasChanged_ || !statistics_.isReady) && now >= nextLook_) {
        hasChanged_ = false;
        lock.unlock();
        look();
        lock.lock();
        nextLook_ = Clock::now() + timeBetweenLooks;
        continue;
      }
      if (auto ended = waiting_.giveUp(now)) {
        ++statistics_.failed;
        lock.unlock();
        tell(ended->acknowledged, {"the stream has not acknowledged the message in time"});
        lock.lock();
        continue;
      }
      if (statistics_.isReady) {
        if (auto next = waiting_.next(now)) {
          underWay_[next->second.get()] = next->first;
          lock.unlock();
          connection_->send(std::move(next->second), *this);
          lock.lock();
          continue;
        }
      }
      sleep(lock, now);
    }
    lock.unlock();
    connection_.reset();
  }

  void sleep(std::unique_lock<std::mutex> &lock, Clock::time_point now) {
    auto wakeUp = now + longestSleep;
    if (hasChanged_ || !statistics_.isReady) wakeUp = nextLook_;
    if (const auto other = waiting_.wakeUp(statistics_.isReady)) wakeUp = std::min(wakeUp, *other);
    if (wakeUp > now) isWoken_.wait_until(lock, wakeUp);
  }

  /// Whether the stream is there; on the worker alone, which may wait.
  void look() {
    std::string problem;
    try {
      if (connection_ != nullptr && connection_->isClosed()) connection_.reset();
      if (connection_ == nullptr) {
        forgetUnderWay();
        connection_ = std::make_unique<NATSConnection>(settings_, weak_from_this());
      }
      problem =
          connection_->isConnected() ? connection_->findStream() : "the connection to the stream is lost";
    } catch (const std::exception &error) {
      problem = error.what();
    }
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      statistics_.isReady = problem.empty();
    }
    if (told_ == problem) return;
    told_ = problem;
    stateChanged_(problem.empty(), problem);
  }

  /// Messages that went with their connection.
  void forgetUnderWay() {
    const std::lock_guard<std::mutex> lock(mutex_);
    underWay_.clear();
  }

  void tell(const MessageStream::Acknowledged &acknowledged, const StreamOutcome &outcome) {
    const std::lock_guard<std::mutex> telling(tellingMutex_);
    if (!isOver_) acknowledged(outcome);
  }

  void count(Clock::duration time) {
    ++statistics_.acknowledged;
    const double seconds = std::chrono::duration<double>(time).count();
    statistics_.seconds += seconds;
    const auto &bounds = StreamStatistics::bounds;
    const auto bound = std::lower_bound(bounds.begin(), bounds.end(), seconds) - bounds.begin();
    ++statistics_.times[static_cast<std::size_t>(bound)];
  }

  const NATSStreamSettings settings_;
  const StateChanged stateChanged_;
  std::unique_ptr<NATSConnection> connection_;  // the worker's
  std::optional<std::string> told_;             // the same

  std::mutex tellingMutex_;  // goes before the other one
  bool isOver_ = false;      // nobody wants to hear of messages any more

  mutable std::mutex mutex_;  // of all below
  std::condition_variable isWoken_;
  bool isEnding_ = false;
  bool hasChanged_ = false;
  Clock::time_point nextLook_{};
  StreamStatistics statistics_;
  Waiting waiting_;
  std::unordered_map<natsMsg *, Id> underWay_;
  std::thread worker_;
};

NATSStream::NATSStream(const NATSStreamSettings &settings, StateChanged stateChanged)
    : state_(std::make_shared<State>(settings, std::move(stateChanged))) {
  natsOptionsFrom(settings);
  state_->start();
}

NATSStream::~NATSStream() {
  state_->end();
}

void NATSStream::publish(const StreamMessage &message, Acknowledged acknowledged) {
  state_->publish(message, std::move(acknowledged));
}

StreamStatistics NATSStream::statistics() const {
  return state_->statistics();
}

}  // namespace kx::collector
