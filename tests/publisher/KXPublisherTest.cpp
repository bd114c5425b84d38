#include <KXPublisher/KXPublisher.hpp>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "KXPublisher/diagnostics/KXLog.h"
#include "KXPublisher/diagnostics/KXLogError.h"
#include "KXPublisher/providers/KXAsn.h"
#include "KXPublisher/providers/KXCarrier.h"
#include "KXPublisher/providers/KXConnection.h"
#include "KXPublisher/providers/KXDevice.h"
#include "KXPublisher/providers/KXLocation.h"
#include "KXPublisher/publisher/KXLogger.h"
#include "tests/providers/TestProvider.h"
#include "tests/support/FailingDispatch.h"
#include "tests/support/FailingNotificationCenter.h"
#include "tests/support/SimulatedTest.h"
#include "tests/support/Submissions.h"

namespace kx {
namespace {

using Service = SimulatedCollectionService;

class KXPublisherTest : public SimulatedTest {
 protected:
  Service &service = device.service;
  SimulatedApplication &application = *device.application;

  static std::shared_ptr<KXPublisher> start() {
    return KXPublisher::sharedInstanceWithApiToken("token", "svc");
  }
  std::size_t sent() const { return device.service.messages().size(); }
};

TEST_F(KXPublisherTest, IsOneInAProcessAndKeepsItsFirstArguments) {
  const auto first = KXPublisher::sharedInstanceWithApiToken("first", "first.example");
  const auto second =
      KXPublisher::sharedInstanceWithApiToken(std::string("second"), std::string("second.example"));
  EXPECT_EQ(first, second);
  device.advance(700);
  ASSERT_EQ(sent(), 2u);
  for (const auto &request : service.requests)
    EXPECT_THAT(request.url, ::testing::StartsWith("https://first.example/"));
  EXPECT_THAT(service.logins()[0].text().value_or(""), ::testing::HasSubstr("\"sub\":\"first\""));
}

TEST_F(KXPublisherTest, LogsInAndSendsItsFirstMessageByItself) {
  start();
  device.advance(4.9);
  EXPECT_EQ(service.logins().size(), 1u);
  EXPECT_EQ(sent(), 0u);
  device.advance(0.2);
  ASSERT_EQ(sent(), 1u);
  const auto body = nlohmann::json::parse(service.messages()[0].text().value_or(""));
  ASSERT_EQ(body.size(), 1u);
  EXPECT_EQ(body[0]["ifa"], "6D92078A-8246-4BA4-AE5B-76104861E7DC");
  EXPECT_EQ(body[0]["eventTime"], 1700000005000);
  EXPECT_EQ(body[0]["bundleId"], "com.example.Host");
  EXPECT_TRUE(device.consoleService.lines.empty());
}

TEST_F(KXPublisherTest, SurvivesAbsentArguments) {
  EXPECT_NE(KXPublisher::sharedInstanceWithApiToken(nullptr, nullptr), nullptr);
  device.advance(86400);
  EXPECT_TRUE(service.requests.empty());
  EXPECT_TRUE(device.consoleService.lines.empty());
}

TEST_F(KXPublisherTest, TakesTheSharedLogAndLoggerIntoUse) {
  const auto publisher = start();
  EXPECT_EQ(publisher->kxLog(), KXLog::sharedInstance());
  EXPECT_EQ(publisher->kxLogger(), KXLogger::sharedInstanceWithApiToken("other", "other"));
  EXPECT_EQ(publisher->dataProviders().size(), 5u);
}

TEST_F(KXPublisherTest, SwitchesTheLogBetweenDebugAndErrorInTheWholeProcess) {
  const auto publisher = start();
  EXPECT_EQ(KXLog::sharedInstance()->logLevel(), KXLogLevelError);
  publisher->enableDebugging();
  EXPECT_EQ(KXLog::sharedInstance()->logLevel(), KXLogLevelDebug);
  publisher->disableDebugging();
  EXPECT_EQ(KXLog::sharedInstance()->logLevel(), KXLogLevelError);
  KXLogError("still heard");
  EXPECT_EQ(device.consoleService.lines.size(), 1u);
}

// ---- The send gate

struct GateCase {
  const char *name;
  std::optional<std::string> text;
};

std::string nameOf(const ::testing::TestParamInfo<GateCase> &info) {
  return info.param.name;
}

class KXPublisherGateTest : public KXPublisherTest, public ::testing::WithParamInterface<GateCase> {};

TEST_P(KXPublisherGateTest, DropsAMessageWithoutAUsableIdentifierAndSaysNothing) {
  device.advertisingService->identifier = GetParam().text;
  start();
  device.advance(3600);
  application.enterBackground();
  device.advance(1);
  EXPECT_EQ(sent(), 0u);
  EXPECT_EQ(service.logins().size(), 1u);
  EXPECT_TRUE(device.consoleService.lines.empty());
}

INSTANTIATE_TEST_SUITE_P(Unusable, KXPublisherGateTest,
                         ::testing::Values(GateCase{"Absent", std::nullopt}, GateCase{"Empty", ""},
                                           GateCase{"AllZeros", "00000000-0000-0000-0000-000000000000"}),
                         nameOf);

class KXPublisherOpenGateTest : public KXPublisherTest, public ::testing::WithParamInterface<GateCase> {};

TEST_P(KXPublisherOpenGateTest, SendsAMessageWithAnyOtherIdentifier) {
  device.advertisingService->identifier = GetParam().text;
  start();
  device.advance(6);
  EXPECT_EQ(sent(), 1u);
}

INSTANTIATE_TEST_SUITE_P(
    Usable, KXPublisherOpenGateTest,
    ::testing::Values(GateCase{"OneZero", "0"}, GateCase{"Blank", " "},
                      GateCase{"ZerosWithoutHyphens", "00000000000000000000000000000000"},
                      GateCase{"ZerosInBraces", "{00000000-0000-0000-0000-000000000000}"},
                      GateCase{"AlmostAllZeros", "00000000-0000-0000-0000-000000000001"},
                      GateCase{"AnyText", "anything"}),
    nameOf);

TEST_F(KXPublisherTest, BuildsAMessageAtEachReportEvenIfItIsDropped) {
  device.advertisingService->identifier = std::nullopt;
  const auto publisher = start();
  device.advance(6);
  EXPECT_EQ(*publisher->data().find("id"), Value("simulated-2"));  // the first was the dropped report's
}

TEST_F(KXPublisherTest, ReportsOnDemandAsynchronouslyOrNot) {
  const auto publisher = start();
  device.advance(1);
  publisher->logDataAsync(false);
  EXPECT_EQ(sent(), 1u);
  publisher->logDataAsync(true);
  publisher->logData(nullptr);
  EXPECT_EQ(sent(), 1u);
  device.runReadyTasks();
  EXPECT_EQ(sent(), 3u);
}

TEST_F(KXPublisherTest, DropsAReportWhileThereIsNoTokenAndSendsTheNextOne) {
  service.script(Service::loginPath, {SimulatedReply::status(500)});
  start();
  device.advance(299);
  EXPECT_EQ(sent(), 0u);
  device.advance(302);
  EXPECT_EQ(sent(), 1u);
  EXPECT_THAT(service.messages()[0].text().value_or(""), ::testing::HasSubstr("\"eventTime\":1700000600000"));
}

// ---- Entering the background

TEST_F(KXPublisherTest, ReportsUnderABackgroundTaskWhenRefreshIsAvailable) {
  start();
  device.advance(10);
  application.enterBackground();
  ASSERT_EQ(application.backgroundTasks.size(), 1u);
  EXPECT_EQ(application.backgroundTasks[0].name, "com.brindlecove.KXPublisher.");
  EXPECT_EQ(sent(), 1u);  // the report is made on a worker
  device.runReadyTasks();
  EXPECT_EQ(sent(), 2u);
  EXPECT_TRUE(application.backgroundTasks[0].ended);
  EXPECT_EQ(application.endedIdentifiers, (std::vector<BackgroundTaskIdentifier>{1}));
}

TEST_F(KXPublisherTest, ReportsOnTheMainThreadWithoutATaskWhenRefreshIsNotAvailable) {
  start();
  device.advance(10);
  for (const auto status : {BackgroundRefreshStatus::denied, BackgroundRefreshStatus::restricted}) {
    application.refreshStatus = status;
    const std::size_t before = sent();
    application.enterBackground();
    EXPECT_EQ(sent(), before + 1);
    application.enterForeground();
    device.advance(10);
  }
  EXPECT_TRUE(application.backgroundTasks.empty());
  EXPECT_TRUE(application.endedIdentifiers.empty());
}

TEST_F(KXPublisherTest, EndsItsBackgroundTaskWhenTheTimeRunsOutAndTheWorkerEndsNothing) {
  start();
  device.advance(10);
  application.enterBackground();
  application.expireBackgroundTasks();
  EXPECT_TRUE(application.backgroundTasks[0].ended);
  device.runReadyTasks();
  EXPECT_EQ(application.endedIdentifiers, (std::vector<BackgroundTaskIdentifier>{1, invalidBackgroundTask}));
  EXPECT_EQ(sent(), 2u);
}

TEST_F(KXPublisherTest, EndsItsBackgroundTaskWhenTheWorkerIsDoneAndALateExpirationEndsNothing) {
  start();
  device.advance(10);
  application.enterBackground();
  // The system may have decided to call it just before the task ended.
  const auto expirationHandler = application.backgroundTasks[0].expirationHandler;
  ASSERT_NE(expirationHandler, nullptr);
  device.runReadyTasks();
  EXPECT_EQ(application.endedIdentifiers, (std::vector<BackgroundTaskIdentifier>{1}));
  expirationHandler();
  EXPECT_EQ(application.endedIdentifiers, (std::vector<BackgroundTaskIdentifier>{1, invalidBackgroundTask}));
  EXPECT_EQ(sent(), 2u);
}

TEST_F(KXPublisherTest, EndsItsBackgroundTaskWhenTheReportFails) {
  start();
  device.advance(10);
  device.urlSessionService.whileNextSessionIsMade = [] { throw std::runtime_error("no session"); };
  application.enterBackground();
  device.runReadyTasks();
  EXPECT_EQ(application.endedIdentifiers, (std::vector<BackgroundTaskIdentifier>{1}));
  EXPECT_EQ(device.consoleService.lines,
            (std::vector<std::string>{"[KX Error] An exception ended a task: no session"}));
}

TEST_F(KXPublisherTest, HandsItsReportOverBeforeItsBackgroundTaskEnds) {
  start();
  device.advance(10);
  service.respond = [this](const SimulatedRequest &request) {
    EXPECT_FALSE(application.backgroundTasks.back().ended);
    return service.defaultReply(request);
  };
  application.enterBackground();
  device.runReadyTasks();
  EXPECT_EQ(sent(), 2u);
}

TEST_F(KXPublisherTest, UsesTheQueuesThatItSaysItUses) {
  start();
  device.advance(10);
  device.scheduler.trace.recording = true;
  application.enterBackground();
  EXPECT_EQ(submissions(device, "default"), 1u);
  EXPECT_EQ(submissions(device, "background"), 0u);
}

TEST_F(KXPublisherTest, IgnoresNotificationsOfAnotherSender) {
  const auto publisher = start();
  device.advance(10);
  const auto other = std::make_shared<SimulatedApplication>(device.notificationCenter, device.scheduler);
  const auto timer = publisher->logTimer();
  other->enterBackground();
  other->enterForeground();
  device.advance(10);
  EXPECT_EQ(sent(), 1u);
  EXPECT_EQ(publisher->logTimer(), timer);
  EXPECT_TRUE(timer->isValid());
}

TEST_F(KXPublisherTest, ReportsWhileTheUserScrolls) {
  device.runLoopService.setTracking(true);
  start();
  device.advance(700);
  EXPECT_EQ(sent(), 2u);
}

TEST_F(KXPublisherTest, ReportsOnTheMainLoopWhoeverMakesTheCall) {
  device.scheduler.globalQueue(DispatchQueuePriority::standard).async([] { start(); });
  device.advance(700);
  EXPECT_EQ(sent(), 2u);
}

TEST_F(KXPublisherTest, AsksAgainAtEachReportForFactsThatWereLost) {
  const auto publisher = start();
  device.advance(10);
  const auto provider = TestProvider::make();
  publisher->setDataProviders({provider});
  provider->whileComputing = [] { throw std::runtime_error("no memory"); };
  EXPECT_THROW(device.runReadyTasks(), std::runtime_error);
  publisher->logDataAsync(false);
  device.runReadyTasks();
  EXPECT_EQ(provider->computed, 2);
}

TEST_F(KXPublisherTest, EndsItsBackgroundTaskWhenNoWorkerCanBeHad) {
  start();
  device.advance(10);
  device.replaced.dispatch = std::make_shared<FailingDispatch>(device.scheduler);
  EXPECT_THROW(application.enterBackground(), std::runtime_error);
  EXPECT_EQ(application.endedIdentifiers, (std::vector<BackgroundTaskIdentifier>{1}));
}

TEST_F(KXPublisherTest, LetsNoExceptionThroughItsDoor) {
  const auto publisher = start();
  device.advance(10);
  class NoList : public InterfaceList {
    std::vector<InterfaceAddress> getifaddrs() override { throw std::runtime_error("no list"); }
  };
  device.replaced.interfaceList = std::make_shared<NoList>();
  EXPECT_TRUE(publisher->data().empty());
  EXPECT_EQ(publisher->description(), "");
  publisher->logData(nullptr);
  publisher->logDataAsync(false);
  EXPECT_EQ(sent(), 1u);
  EXPECT_EQ(device.consoleService.lines,
            std::vector<std::string>(4, "[KX Error] An exception ended a task: no list"));
  device.replaced.interfaceList = nullptr;
  device.advance(600);
  EXPECT_EQ(sent(), 2u);
}

TEST_F(KXPublisherTest, IsNoneWhereThePlatformThrowsAndWholeWhenItIsAskedForAgain) {
  class NoLoops : public RunLoopService {
   public:
    explicit NoLoops(RunLoopService &loops) : loops_(loops) {}
    std::shared_ptr<RunLoop> mainRunLoop() override { return loops_.mainRunLoop(); }
    std::shared_ptr<RunLoop> currentRunLoop() override { return loops_.currentRunLoop(); }
    std::shared_ptr<RunLoopTimer> timerWithTimeInterval(double timeInterval,
                                                        const std::shared_ptr<Object> &target,
                                                        Selector selector, bool repeats) override {
      if (repeats) throw std::runtime_error("no timer");
      return loops_.timerWithTimeInterval(timeInterval, target, selector, repeats);
    }

   private:
    RunLoopService &loops_;
  };
  device.replaced.runLoops = std::make_shared<NoLoops>(device.runLoopService);
  EXPECT_EQ(start(), nullptr);
  EXPECT_EQ(KXPublisher::initWithApiToken("token", "svc"), nullptr);
  device.replaced.runLoops = nullptr;
  EXPECT_EQ(device.counts().timers, 0u);
  EXPECT_NE(start(), nullptr);
  device.advance(10);
  EXPECT_EQ(sent(), 1u);
  application.enterBackground();
  device.advance(10);
  EXPECT_EQ(sent(), 2u);
}

TEST_F(KXPublisherTest, WhatIsNotWholeDoesNotFollowTheApplication) {
  KXDevice::sharedInstance();
  KXCarrier::sharedInstance();
  KXLocation::sharedInstance();
  KXConnection::sharedInstance();
  KXAsn::sharedInstance();
  device.replaced.notificationCenter =
      std::make_shared<FailingNotificationCenter>(device.scheduler, device.mainOperations);
  EXPECT_EQ(start(), nullptr);
  EXPECT_NE(start(), nullptr);
  device.advance(10);
  EXPECT_EQ(sent(), 1u);
  device.defaultNotificationCenter().postNotificationName(UIApplicationDidEnterBackgroundNotification,
                                                          device.application);
  device.advance(10);
  EXPECT_EQ(sent(), 2u);
}

TEST_F(KXPublisherTest, HasAReaderAndASetterForEachProperty) {
  const auto publisher = start();
  const auto timer = publisher->logTimer();
  publisher->setLogTimer(nullptr);
  EXPECT_EQ(publisher->logTimer(), nullptr);
  publisher->setLogTimer(timer);
  EXPECT_EQ(publisher->logTimer(), timer);
  publisher->setKxLog(nullptr);
  publisher->enableDebugging();
  publisher->disableDebugging();
  EXPECT_EQ(publisher->kxLog(), nullptr);
  publisher->setKxLog(KXLog::sharedInstance());
  EXPECT_EQ(publisher->kxLog(), KXLog::sharedInstance());
  publisher->setKxLogger(nullptr);
  EXPECT_EQ(publisher->kxLogger(), nullptr);
  device.advance(10);
  EXPECT_EQ(sent(), 0u);  // dropped, without a word
  EXPECT_TRUE(device.consoleService.lines.empty());
  EXPECT_EQ(KXPublisher::diagnosis().drop, KXDiagnosis::Drop::noTransport);
}

TEST_F(KXPublisherTest, GivesEachEntryIntoTheBackgroundATaskOfItsOwn) {
  start();
  device.advance(10);
  application.enterBackground();
  application.enterForeground();
  application.enterBackground();
  device.runReadyTasks();
  EXPECT_EQ(application.endedIdentifiers, (std::vector<BackgroundTaskIdentifier>{1, 2}));
}

TEST_F(KXPublisherTest, HasNoRepeatingTimerInTheBackground) {
  const auto publisher = start();
  const auto timer = publisher->logTimer();
  EXPECT_TRUE(timer->isValid());
  application.enterBackground();
  EXPECT_EQ(publisher->logTimer(), nullptr);
  EXPECT_FALSE(timer->isValid());
  application.enterBackground();  // harmless when repeated
  application.enterForeground();
  EXPECT_TRUE(publisher->logTimer()->isValid());
}

// ---- Tear-down of a publisher of its own

TEST_F(KXPublisherTest, SharesTheSingleInstancesWithAPublisherOfItsOwn) {
  const auto shared = start();
  const auto own = KXPublisher::initWithApiToken("other", "other");
  EXPECT_NE(own, shared);
  EXPECT_EQ(own->dataProviders(), shared->dataProviders());
  EXPECT_EQ(own->kxLogger(), shared->kxLogger());
  device.advance(6);
  EXPECT_EQ(sent(), 2u);
  EXPECT_EQ(service.logins().size(), 1u);
}

}  // namespace
}  // namespace kx
