#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "KXPublisher/platform/foundation/Exceptions.h"
#include "KXPublisher/providers/KXAsn.h"
#include "KXPublisher/providers/KXCarrier.h"
#include "KXPublisher/providers/KXConnection.h"
#include "KXPublisher/providers/KXData.h"
#include "KXPublisher/providers/KXDevice.h"
#include "KXPublisher/providers/KXLocation.h"
#include "tests/providers/TestProvider.h"
#include "tests/support/FailingDispatch.h"
#include "tests/support/FailingNotificationCenter.h"
#include "tests/support/SimulatedTest.h"
#include "tests/support/Submissions.h"

namespace kx {
namespace {

using KXDataTest = SimulatedTest;

/// A provider that supplies nothing of the contract.
class BareProvider : public KXData {};

/// What the call throws as `Exception`; empty when it throws no such thing.
template <class Exception, class Call>
std::string reasonOf(Call call) {
  try {
    call();
  } catch (const Exception &exception) {
    return exception.what();
  } catch (...) {
  }
  return "";
}

std::vector<std::shared_ptr<KXData>> allProviders() {
  return {KXDevice::sharedInstance(), KXCarrier::sharedInstance(), KXLocation::sharedInstance(),
          KXConnection::sharedInstance(), KXAsn::sharedInstance()};
}

TEST_F(KXDataTest, RaisesForEachOperationThatASubclassDoesNotSupply) {
  BareProvider provider;
  EXPECT_EQ(reasonOf<InternalInconsistencyException>([] { BareProvider::sharedInstance(); }),
            "You must override sharedInstance in a subclass");
  EXPECT_EQ(
      reasonOf<InternalInconsistencyException>([] { BareProvider::sharedInstanceWithMonitoring(true); }),
      "You must override sharedInstanceWithMonitoring: in a subclass");
  EXPECT_EQ(reasonOf<InternalInconsistencyException>([&] { provider.needsMonitoring(); }),
            "You must override needsMonitoring in a subclass");
  EXPECT_EQ(reasonOf<InternalInconsistencyException>([&] { provider.hasPermissions(); }),
            "You must override hasPermissions in a subclass");
  EXPECT_EQ(reasonOf<InternalInconsistencyException>([&] { provider.computeData(); }),
            "You must override computeData in a subclass");
}

TEST_F(KXDataTest, RaisesForMonitoredInstancesOfEveryProvider) {
  const std::string reason = "You must override sharedInstanceWithMonitoring: in a subclass";
  const auto raised = [](auto call) { return reasonOf<InternalInconsistencyException>(call); };
  EXPECT_EQ(raised([] { KXDevice::sharedInstanceWithMonitoring(false); }), reason);
  EXPECT_EQ(raised([] { KXCarrier::sharedInstanceWithMonitoring(false); }), reason);
  EXPECT_EQ(raised([] { KXLocation::sharedInstanceWithMonitoring(true); }), reason);
  EXPECT_EQ(raised([] { KXConnection::sharedInstanceWithMonitoring(true); }), reason);
  EXPECT_EQ(raised([] { KXAsn::sharedInstanceWithMonitoring(true); }), reason);
}

TEST_F(KXDataTest, TellsWhyAClassHasNoMonitoringPeriod) {
  class Unmonitored : public BareProvider {
   public:
    bool needsMonitoring() const override { return false; }
  };
  class MonitoredWithoutPeriod : public BareProvider {
   public:
    bool needsMonitoring() const override { return true; }
  };
  EXPECT_THROW(Unmonitored().monitoringTimeInterval(), UnrecognizedSelectorException);
  EXPECT_EQ(
      reasonOf<InternalInconsistencyException>([] { MonitoredWithoutPeriod().monitoringTimeInterval(); }),
      "You must override monitoringTimeInterval in a subclass");
}

TEST_F(KXDataTest, KeepsTheTwoFailuresApart) {
  EXPECT_EQ(
      reasonOf<InternalInconsistencyException>([] { KXAsn::sharedInstance()->monitoringTimeInterval(); }),
      "");
  EXPECT_NE(
      reasonOf<UnrecognizedSelectorException>([] { KXAsn::sharedInstance()->monitoringTimeInterval(); }), "");
}

TEST_F(KXDataTest, GivesEachProviderClassOneInstance) {
  EXPECT_EQ(allProviders(), allProviders());
  const auto providers = allProviders();
  for (std::size_t i = 1; i < providers.size(); ++i) EXPECT_NE(providers[i - 1], providers[i]);
}

TEST_F(KXDataTest, MonitorsNoneOfTheProviders) {
  for (const auto &provider : allProviders()) {
    EXPECT_FALSE(provider->needsMonitoring());
    EXPECT_FALSE(provider->isMonitoring());
    EXPECT_THROW(provider->setMonitoring(true), UnrecognizedSelectorException);
    EXPECT_FALSE(provider->isMonitoring());
  }
}

TEST_F(KXDataTest, RunsTheSubclassesSetUpOnceBeforeItsOwn) {
  class ChecksOrder : public TestProvider {
   public:
    void instanceDidStartInit() override {
      TestProvider::instanceDidStartInit();
      EXPECT_EQ(computeDataOperationQueue(), nullptr);
      EXPECT_EQ(sharedScheduler(), nullptr);
    }
    static std::shared_ptr<ChecksOrder> make() { return KXData::make<ChecksOrder>(); }
  };
  const auto provider = ChecksOrder::make();
  EXPECT_EQ(provider->startedInit, 1);
  EXPECT_NE(provider->computeDataOperationQueue(), nullptr);
  EXPECT_EQ(provider->sharedScheduler(), KXScheduler::sharedInstance());
}

TEST_F(KXDataTest, HasNoDataUntilTheFirstOperationHasRun) {
  const auto provider = TestProvider::make();
  EXPECT_EQ(provider->data(), nullptr);
  device.runReadyTasks();
  EXPECT_EQ(provider->facts(), (Dictionary{{"computed", 1}}));
}

TEST_F(KXDataTest, RefreshesItselfOnceAtItsCreationIfPermitted) {
  const auto provider = TestProvider::make();
  const auto forbidden = TestProvider::make();
  forbidden->permitted = false;
  device.advance(3600);
  EXPECT_EQ(provider->computed, 1);
  EXPECT_EQ(forbidden->computed, 0);
  EXPECT_EQ(forbidden->permissionsAsked, 1);
  EXPECT_EQ(forbidden->data(), nullptr);
}

TEST_F(KXDataTest, MissesItsInitialRefreshWhenTheWorkerIsQuickerThanItsQueue) {
  device.scheduler.setBackgroundTasksRunAtOnce(true);
  const auto provider = TestProvider::make();
  device.advance(10);
  EXPECT_EQ(provider->permissionsAsked, 1);
  EXPECT_EQ(provider->computed, 0);
  EXPECT_EQ(provider->data(), nullptr);
  provider->updateData();
  device.runReadyTasks();
  EXPECT_EQ(provider->facts(), (Dictionary{{"computed", 1}}));
}

TEST_F(KXDataTest, DoesNothingWithoutAQueue) {
  class Hasty : public TestProvider {
   public:
    void instanceDidStartInit() override {
      updateData();
      updateData(std::make_shared<MutableDictionary>());
      resetData();
    }
    static std::shared_ptr<Hasty> make() { return KXData::make<Hasty>(); }
  };
  const auto provider = Hasty::make();
  provider->permitted = false;
  device.runReadyTasks();
  EXPECT_EQ(provider->computed, 0);
  EXPECT_EQ(provider->data(), nullptr);
}

TEST_F(KXDataTest, ComputesOffTheMainThreadAndOnlyWhenItsTurnComes) {
  const auto provider = TestProvider::make();
  device.runReadyTasks();
  bool onMainThread = true;
  provider->whileComputing = [&] { onMainThread = device.scheduler.isMainThread(); };
  provider->updateData();
  EXPECT_EQ(provider->computed, 1);
  device.runReadyTasks();
  EXPECT_EQ(provider->computed, 2);
  EXPECT_FALSE(onMainThread);
}

TEST_F(KXDataTest, ComputesOnlyForTheLatestOfTheRequestsMadeWhileItIsBusy) {
  const auto provider = TestProvider::make();
  device.runReadyTasks();
  provider->whileComputing = [&] {
    provider->updateData();
    provider->updateData();
    provider->updateData();
  };
  provider->updateData();
  device.runReadyTasks();
  EXPECT_EQ(provider->computed, 3);  // the initial refresh, the busy one and the latest
}

TEST_F(KXDataTest, LetsTheLatestRequestWinWhateverItsKind) {
  const auto provider = TestProvider::make();
  device.runReadyTasks();
  provider->updateData();
  provider->resetData();
  provider->updateData(std::make_shared<MutableDictionary>(Dictionary{{"installed", true}}));
  device.runReadyTasks();
  EXPECT_EQ(provider->computed, 1);
  EXPECT_EQ(provider->facts(), (Dictionary{{"installed", true}}));
}

TEST_F(KXDataTest, InstallsAGivenMapItself) {
  const auto provider = TestProvider::make();
  device.runReadyTasks();
  const auto given = std::make_shared<MutableDictionary>(Dictionary{{"key", "value"}});
  provider->updateData(given);
  EXPECT_NE(provider->data(), given);
  device.runReadyTasks();
  EXPECT_EQ(provider->data(), given);
}

TEST_F(KXDataTest, ResetsItsDataToANewEmptyMap) {
  const auto provider = TestProvider::make();
  device.runReadyTasks();
  const auto before = provider->data();
  provider->resetData();
  device.runReadyTasks();
  ASSERT_NE(provider->data(), nullptr);
  EXPECT_NE(provider->data(), before);
  EXPECT_TRUE(provider->facts().empty());
}

TEST_F(KXDataTest, EmptiesThePreviousMapUnderItsReaders) {
  const auto provider = TestProvider::make();
  device.runReadyTasks();
  const std::vector<std::function<void()>> replacements{
      [&] { provider->updateData(); },
      [&] {
        provider->updateData(std::make_shared<MutableDictionary>(Dictionary{{"key", 1}}));
      },
      [&] { provider->resetData(); }};
  for (const auto &replace : replacements) {
    provider->updateData();
    device.runReadyTasks();
    const auto held = provider->data();
    ASSERT_FALSE(held->contents()->empty());
    replace();
    EXPECT_FALSE(held->contents()->empty());
    device.runReadyTasks();
    EXPECT_TRUE(held->contents()->empty());
  }
}

TEST_F(KXDataTest, EmptiesThePreviousMapBeforeItComputesTheNext) {
  const auto provider = TestProvider::make();
  device.runReadyTasks();
  bool empty = false;
  provider->whileComputing = [&] { empty = provider->facts().empty(); };
  provider->updateData();
  device.runReadyTasks();
  EXPECT_TRUE(empty);
}

TEST_F(KXDataTest, DoesNotCatchWhatComputeDataThrowsAndGoesOnAfterIt) {
  const auto provider = TestProvider::make();
  device.runReadyTasks();
  provider->whileComputing = [] { throw std::runtime_error("broken"); };
  provider->updateData();
  EXPECT_THROW(device.runReadyTasks(), std::runtime_error);
  EXPECT_TRUE(provider->facts().empty());
  provider->updateData();
  device.runReadyTasks();
  EXPECT_EQ(provider->facts(), (Dictionary{{"computed", 3}}));
}

TEST_F(KXDataTest, UsesTheQueuesThatItSaysItUses) {
  device.scheduler.trace.recording = true;
  TestProvider::make();
  EXPECT_EQ(submissions(device, "background"), 1u);
  EXPECT_EQ(submissions(device, "default"), 0u);
  device.runReadyTasks();
  EXPECT_EQ(submissions(device, "background"), 1u);
  EXPECT_EQ(submissions(device, "default"), 1u);
}

TEST_F(KXDataTest, LeavesNothingBehindThatFollowsTheApplicationWhenItCannotBeMade) {
  static int alive = 0;
  class Counted : public TestProvider {
   public:
    Counted() { ++alive; }
    ~Counted() override { --alive; }
    static std::shared_ptr<Counted> make() { return KXData::make<Counted>(); }
  };
  device.replaced.notificationCenter =
      std::make_shared<FailingNotificationCenter>(device.scheduler, device.mainOperations);
  EXPECT_THROW(Counted::make(), std::runtime_error);
  device.runReadyTasks();
  EXPECT_EQ(alive, 0);
}

TEST_F(KXDataTest, HasAReaderAndASetterForEachProperty) {
  const auto provider = TestProvider::make();
  const auto data = std::make_shared<MutableDictionary>();
  provider->setData(data);
  EXPECT_EQ(provider->data(), data);
  const auto scheduler = std::make_shared<KXScheduler>();
  EXPECT_EQ(provider->sharedScheduler(), KXScheduler::sharedInstance());
  provider->setSharedScheduler(scheduler);
  EXPECT_EQ(provider->sharedScheduler(), scheduler);
  const auto queue = std::make_shared<SerialOperationQueue>();
  provider->setComputeDataOperationQueue(queue);
  EXPECT_EQ(provider->computeDataOperationQueue(), queue);
  const auto carrier = KXCarrier::sharedInstance();
  carrier->setCarrierInfo(nullptr);
  EXPECT_EQ(carrier->carrierInfo(), nullptr);
  carrier->setNetworkInfo(nullptr);
  EXPECT_EQ(carrier->networkInfo(), nullptr);
  const auto location = KXLocation::sharedInstance();
  location->setLocationManager(nullptr);
  EXPECT_EQ(location->locationManager(), nullptr);
  location->setGeocoder(nullptr);
  EXPECT_EQ(location->geocoder(), nullptr);
}

TEST_F(KXDataTest, IgnoresTheApplicationsTransitionsWithoutMonitoring) {
  const auto provider = TestProvider::make();
  device.runReadyTasks();
  device.application->enterBackground();
  device.advance(10);
  device.application->enterForeground();
  device.advance(3600);
  EXPECT_EQ(provider->computed, 1);
  EXPECT_EQ(provider->permissionsAsked, 1);
}

TEST_F(KXDataTest, StaysAliveForTheApplicationsTransitions) {
  const std::weak_ptr<TestProvider> provider = TestProvider::make();
  device.runReadyTasks();
  EXPECT_FALSE(provider.expired());
}

TEST_F(KXDataTest, UpdatesItselfWhenItsTimerFires) {
  const auto provider = TestProvider::make();
  device.runReadyTasks();
  provider->updateDataWithTimer(nullptr);
  EXPECT_EQ(provider->computed, 1);
  device.runReadyTasks();
  EXPECT_EQ(provider->computed, 2);
}

}  // namespace
}  // namespace kx
