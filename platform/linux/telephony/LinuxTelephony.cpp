#include "platform/linux/telephony/LinuxTelephony.h"

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

#include "platform/linux/console/CallbackBoundary.h"

namespace kx {

namespace {

class HomeCarrier : public Carrier {
 public:
  explicit HomeCarrier(HomeOperator homeOperator) : homeOperator_(std::move(homeOperator)) {}

  std::optional<std::string> mobileCountryCode() override { return homeOperator_.countryCode; }
  std::optional<std::string> mobileNetworkCode() override { return homeOperator_.networkCode; }

 private:
  const HomeOperator homeOperator_;
};

std::shared_ptr<Carrier> carrierOf(const Subscription &subscription) {
  return subscription.homeOperator ? std::make_shared<HomeCarrier>(*subscription.homeOperator) : nullptr;
}

}  // namespace

/// The subscription as it was read last, and the telephony objects that report it.
class LinuxTelephony::Subscriber {
 public:
  struct State {
    Subscription subscription;
    bool anythingKnown = false;  ///< now or earlier
    std::uint64_t changes = 0;   ///< how many there were that notifiers are told of
  };

  State state() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return state_;
  }

  void add(const std::shared_ptr<NetworkInfo> &networkInfo);
  /// On the main thread.
  void replace(const Subscription &subscription);

 private:
  mutable std::mutex mutex_;  ///< held for a few instructions, never while something is called
  State state_;
  std::vector<std::weak_ptr<NetworkInfo>> networkInfos_;
};

class LinuxTelephony::NetworkInfo : public TelephonyNetworkInfo {
 public:
  NetworkInfo(std::shared_ptr<LinuxRunLoop> mainRunLoop, std::shared_ptr<Subscriber> subscriber)
      : mainRunLoop_(std::move(mainRunLoop)),
        subscriber_(std::move(subscriber)),
        changesTold_(subscriber_->state().changes) {}

  std::shared_ptr<Carrier> subscriberCellularProvider() override {
    return carrierOf(subscriber_->state().subscription);
  }

  void setSubscriberCellularProviderDidUpdateNotifier(
      SubscriberCellularProviderDidUpdateNotifier notifier) override {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      notifier_.swap(notifier);
    }
    // A change since this object was made that found no notifier is still to be told.
    mainRunLoop_->perform([weak = std::weak_ptr<Object>(weak_from_this())] {
      if (const auto networkInfo = weak.lock()) static_cast<NetworkInfo &>(*networkInfo).tellChange();
    });
  }

  std::optional<std::string> currentRadioAccessTechnology() override {
    return subscriber_->state().subscription.radioAccessTechnology;
  }

  /// Calls the notifier if there was a change that it has not been told of. On the main thread.
  void tellChange() {
    const Subscriber::State state = subscriber_->state();
    SubscriberCellularProviderDidUpdateNotifier notifier;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      if (notifier_ == nullptr || changesTold_ == state.changes) return;
      changesTold_ = state.changes;
      notifier = notifier_;
    }
    runAtBoundary([&] { notifier(carrierOf(state.subscription)); });
  }

 private:
  const std::shared_ptr<LinuxRunLoop> mainRunLoop_;
  const std::shared_ptr<Subscriber> subscriber_;
  std::mutex mutex_;           ///< held for a few instructions, never while something is called
  std::uint64_t changesTold_;  ///< at first those that show in what can be asked of it from its making on
  SubscriberCellularProviderDidUpdateNotifier notifier_;
};

void LinuxTelephony::Subscriber::add(const std::shared_ptr<NetworkInfo> &networkInfo) {
  const std::lock_guard<std::mutex> lock(mutex_);
  networkInfos_.erase(std::remove_if(networkInfos_.begin(), networkInfos_.end(),
                                     [](const auto &weak) { return weak.expired(); }),
                      networkInfos_.end());
  networkInfos_.push_back(networkInfo);
}

void LinuxTelephony::Subscriber::replace(const Subscription &subscription) {
  std::vector<std::shared_ptr<NetworkInfo>> networkInfos;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    const bool firstKnown =
        !state_.anythingKnown && (subscription.homeOperator || subscription.radioAccessTechnology);
    const bool changed = firstKnown || !(subscription.homeOperator == state_.subscription.homeOperator);
    state_.subscription = subscription;
    state_.anythingKnown = state_.anythingKnown || firstKnown;
    if (!changed) return;
    ++state_.changes;
    for (const auto &weak : networkInfos_) networkInfos.push_back(weak.lock());
  }
  for (const auto &networkInfo : networkInfos) {
    if (networkInfo != nullptr) networkInfo->tellChange();
  }
}

LinuxTelephony::LinuxTelephony(std::shared_ptr<LinuxRunLoop> mainRunLoop,
                               std::shared_ptr<SystemBus> systemBus, ModemManagerClient::Intervals intervals)
    : mainRunLoop_(std::move(mainRunLoop)),
      systemBus_(std::move(systemBus)),
      intervals_(intervals),
      subscriber_(std::make_shared<Subscriber>()) {}

LinuxTelephony::~LinuxTelephony() = default;

std::shared_ptr<TelephonyNetworkInfo> LinuxTelephony::makeTelephonyNetworkInfo() {
  std::call_once(busObserved_, [this] {
    const auto client = std::make_shared<ModemManagerClient>(
        mainRunLoop_,
        [subscriber = subscriber_](const Subscription &subscription) { subscriber->replace(subscription); },
        intervals_);
    systemBus_->observe([client](GDBusConnection *connection) { client->use(connection); });
  });
  const auto networkInfo = std::make_shared<NetworkInfo>(mainRunLoop_, subscriber_);
  subscriber_->add(networkInfo);
  return networkInfo;
}

}  // namespace kx
