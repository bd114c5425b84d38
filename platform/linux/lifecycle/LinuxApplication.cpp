#include "platform/linux/lifecycle/LinuxApplication.h"

#include <cerrno>  // program_invocation_short_name
#include <utility>

#include "platform/linux/bus/SystemBus.h"
#include "platform/linux/console/CallbackBoundary.h"
#include "platform/linux/facts/SystemText.h"
#include "platform/linux/lifecycle/SleepMonitor.h"

namespace kx {

namespace {

/// That wait for a main loop which does not run.
constexpr std::size_t maximumTransitions = 64;

}  // namespace

LinuxApplication::LinuxApplication(NotificationCenter &center, Dispatch &dispatch,
                                   BackgroundRefreshStatus backgroundRefreshStatus)
    : center_(center), dispatch_(dispatch), backgroundRefreshStatus_(backgroundRefreshStatus) {}

LinuxApplication::~LinuxApplication() = default;

void LinuxApplication::followSleep(SystemBus &bus, std::shared_ptr<LinuxRunLoop> mainRunLoop,
                                   const std::optional<std::string> &applicationName) {
  const auto calling = [self = std::weak_ptr<LinuxApplication>(strong(*this))](auto operation) {
    return [self, operation] {
      if (const auto application = self.lock()) (*application.*operation)();
    };
  };
  const auto name = validText(applicationName.value_or(program_invocation_short_name));
  sleepMonitor_ =
      std::make_shared<SleepMonitor>(std::move(mainRunLoop), name.value_or("KXPublisher"),
                                     SleepMonitor::Events{calling(&LinuxApplication::systemWillSleep),
                                                          calling(&LinuxApplication::systemDidWake),
                                                          calling(&LinuxApplication::expireBackgroundTasks)});
  bus.observe([observer = std::weak_ptr<SleepMonitor>(sleepMonitor_)](GDBusConnection *connection) {
    if (const auto monitor = observer.lock()) monitor->use(connection);
  });
}

// ---- Foreground and background

void LinuxApplication::didEnterBackground() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    hostIsInBackground_ = true;
    noteTransition();
  }
  postTransitionsSoon();
}

void LinuxApplication::willEnterForeground() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    hostIsInBackground_ = false;
    noteTransition();
  }
  postTransitionsSoon();
}

void LinuxApplication::systemWillSleep() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    systemSleeps_ = true;
    noteTransition();
  }
  postTransitions();
}

void LinuxApplication::systemDidWake() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    systemSleeps_ = false;
    canDelaySleep_ = true;
    noteTransition();
  }
  postTransitions();
}

void LinuxApplication::noteTransition() {
  const bool isInBackground = hostIsInBackground_ || systemSleeps_;
  if (isInBackground == isInBackground_) return;
  if (transitions_.size() == maximumTransitions) {
    transitions_.pop_back();  // the opposite one: nobody has heard of either
  } else {
    transitions_.push_back(isInBackground ? UIApplicationDidEnterBackgroundNotification
                                          : UIApplicationWillEnterForegroundNotification);
  }
  isInBackground_ = isInBackground;
}

void LinuxApplication::postTransitionsSoon() {
  if (dispatch_.isMainThread()) {
    postTransitions();  // those too that other threads have announced before
  } else if (!postsSoon_.exchange(true)) {
    try {
      dispatch_.mainQueue().async([application = strong(*this)] {
        application->postsSoon_ = false;
        application->postTransitions();
      });
    } catch (...) {  // no memory: they are posted with the next one
      postsSoon_ = false;
      throw;
    }
  }
}

void LinuxApplication::postTransitions() {
  while (const char *const transition = nextTransition()) {
    // An observer that throws keeps no later transition back.
    runAtBoundary([this, transition] { center_.postNotificationName(transition, shared_from_this()); });
  }
  updateSleepDelay();  // only now: the observers of a transition may begin tasks
}

const char *LinuxApplication::nextTransition() {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (transitions_.empty()) return nullptr;
  const char *const transition = transitions_.front();
  transitions_.pop_front();
  return transition;
}

// ---- Background tasks

BackgroundTaskIdentifier LinuxApplication::beginBackgroundTaskWithName(
    const std::string & /*name*/, std::function<void()> expirationHandler) {
  BackgroundTaskIdentifier identifier = invalidBackgroundTask;
  bool isReason = false;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!canDelaySleep_) return invalidBackgroundTask;
    identifier = ++lastBackgroundTask_;
    isReason = isInBackground_ && backgroundTasks_.empty();
    backgroundTasks_.emplace(identifier, std::move(expirationHandler));
  }
  if (isReason) updateSleepDelaySoon();
  return identifier;
}

void LinuxApplication::endBackgroundTask(BackgroundTaskIdentifier identifier) {
  decltype(backgroundTasks_)::node_type ended;  // released without the lock
  bool wasReason = false;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    ended = backgroundTasks_.extract(identifier);
    wasReason = !ended.empty() && isInBackground_ && backgroundTasks_.empty();
  }
  if (wasReason) updateSleepDelaySoon();
}

class LinuxApplication::SleepDelay {
 public:
  explicit SleepDelay(std::shared_ptr<LinuxApplication> application) : application_(std::move(application)) {
    application_->changeSleepDelays(+1);
  }
  ~SleepDelay() { application_->changeSleepDelays(-1); }
  SleepDelay(const SleepDelay &) = delete;
  SleepDelay &operator=(const SleepDelay &) = delete;

 private:
  const std::shared_ptr<LinuxApplication> application_;
};

std::shared_ptr<void> LinuxApplication::delaySleep() {
  return std::make_shared<SleepDelay>(strong(*this));
}

void LinuxApplication::changeSleepDelays(int by) noexcept {
  bool changesReason = false;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    const bool hadAny = sleepDelays_ > 0;
    sleepDelays_ += by;
    changesReason = isInBackground_ && hadAny != (sleepDelays_ > 0);
  }
  if (changesReason) runAtBoundary([this] { updateSleepDelaySoon(); });
}

void LinuxApplication::expireBackgroundTasks() {
  decltype(backgroundTasks_) expired;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    canDelaySleep_ = false;
    expired.swap(backgroundTasks_);
  }
  for (const auto &[identifier, expirationHandler] : expired) {
    if (expirationHandler != nullptr) runAtBoundary(expirationHandler);
  }
  updateSleepDelay();
}

// In the foreground the sleep is delayed, too: logind grants no lock any more when it announces that the
// system sleeps, and the tasks that need one are begun because of that announcement.
void LinuxApplication::updateSleepDelay() {
  if (sleepMonitor_ == nullptr) return;
  bool delays = false;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    delays = !isInBackground_ || !transitions_.empty() || !backgroundTasks_.empty() ||
             (canDelaySleep_ && sleepDelays_ > 0);
    if (systemSleeps_ && !delays) canDelaySleep_ = false;
  }
  sleepMonitor_->setDelaysSleep(delays);
}

void LinuxApplication::updateSleepDelaySoon() {
  if (sleepMonitor_ == nullptr) return;
  dispatch_.mainQueue().async([application = strong(*this)] { application->updateSleepDelay(); });
}

}  // namespace kx
