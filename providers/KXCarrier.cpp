#include "KXPublisher/providers/KXCarrier.h"

#include <string>
#include <string_view>

#include "KXPublisher/platform/Application.h"
#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/platform/foundation/StringFormat.h"
#include "platform/foundation/SingleInstance.h"
#include "providers/Facts.h"

namespace kx {

using namespace constants;

namespace {

std::string removingEvery(std::string_view part, std::string text) {
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at))
    text.erase(at, part.size());
  return text;
}

}  // namespace

std::shared_ptr<KXCarrier> KXCarrier::sharedInstance() {
  return singleInstance([] { return make<KXCarrier>(); });
}

void KXCarrier::instanceDidStartInit() {
  initCarrierInfo();
  whenApplicationPosts(UIApplicationWillEnterForegroundNotification, [this] {
    initCarrierInfo();
    updateDataInBackground(/*ifPermitted=*/false);
  });
}

void KXCarrier::initCarrierInfo() {
  const auto networkInfo = Platform::current().telephony().makeTelephonyNetworkInfo();
  if (networkInfo == nullptr) return;
  const auto previous = this->networkInfo();
  networkInfo_.set(networkInfo);
  try {
    followCarrier(*networkInfo);
  } catch (...) {
    networkInfo_.set(previous);  // which reports changes
    throw;
  }
}

void KXCarrier::followCarrier(TelephonyNetworkInfo &networkInfo) {
  carrierInfo_.set(networkInfo.subscriberCellularProvider());
  networkInfo.setSubscriberCellularProviderDidUpdateNotifier(
      [this, held = heldByHandlers()](const std::shared_ptr<Carrier> &carrier) {
        const auto provider = held == nullptr ? nullptr : held->get();
        if (provider == nullptr) return;
        carrierInfo_.set(carrier);
        updateData();
      });
}

std::shared_ptr<MutableDictionary> KXCarrier::computeData() {
  Dictionary facts;
  if (const auto carrier = carrierInfo()) {
    const auto countryCode = carrier->mobileCountryCode();
    const auto networkCode = carrier->mobileNetworkCode();
    if (countryCode && networkCode) {
      facts.set(dataKeyCarrierCode, stringWithFormat("%@-%@", {countryCode, networkCode}));
    }
  }
  if (const auto networkInfo = this->networkInfo()) {
    if (auto technology = networkInfo->currentRadioAccessTechnology()) {
      setFact(facts, dataKeyRadioAccessTechnology,
              removingEvery("CTRadioAccessTechnology", *std::move(technology)));
    }
  }
  return std::make_shared<MutableDictionary>(std::move(facts));
}

}  // namespace kx
