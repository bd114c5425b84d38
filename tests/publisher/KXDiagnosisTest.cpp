// What is told of the host's call, its main loop, the gate and a day on which all is well.

#include "tests/publisher/KXDiagnosisTest.h"

#include <string>
#include <vector>

#include "KXPublisher/publisher/KXLogger.h"

namespace kx {
namespace {

using Argument = KXDiagnosis::Argument;
using Delivery = KXDiagnosis::Delivery;
using Drop = KXDiagnosis::Drop;
using Identifier = KXDiagnosis::Identifier;
using Login = KXDiagnosis::Login;
using MainLoop = KXDiagnosis::MainLoop;
using ::testing::HasSubstr;
using ::testing::Not;

// ---- Before there is anything

TEST(KXDiagnosisBeforeAll, MakesNoPlatform) {
  const KXDiagnosis diagnosis = KXPublisher::diagnosis();
  EXPECT_EQ(diagnosis.time, 0);
  EXPECT_EQ(diagnosis.publisherMade, std::nullopt);
  EXPECT_TRUE(Platform::install(std::make_unique<SimulatedPlatform>()));  // which comes in time
}

TEST_F(KXDiagnosisTest, TellsThatTheHostHasNotMadeItsCall) {
  const KXDiagnosis before = diagnosis();
  EXPECT_EQ(before.publisherMade, std::nullopt);
  EXPECT_EQ(before.entryCalls, 0u);
  EXPECT_EQ(before.apiToken, Argument::unknown);
  EXPECT_EQ(before.hostname, Argument::unknown);
  EXPECT_EQ(before.identifier, Identifier::unknown);
  EXPECT_EQ(before.login, Login::never);
  EXPECT_EQ(before.delivery, Delivery::never);
  EXPECT_EQ(before.time, start);
  EXPECT_THAT(before.text(), HasSubstr("Publisher: not made\n"));
  EXPECT_THAT(before.text(), HasSubstr("- The host has not made its call."));
}

TEST(KXDiagnosisValue, TellsThatOptionsCameTooLateBeforeAndAfterTheCall) {
  constexpr const char *advice = "- The host's options came after the library had been used";
  KXDiagnosis diagnosis;
  EXPECT_THAT(diagnosis.text(), Not(HasSubstr(advice)));
  diagnosis.optionsCameTooLate = true;
  EXPECT_THAT(diagnosis.text(), HasSubstr(advice));
  diagnosis.publisherMade = KXDiagnosis::Moment{1};
  EXPECT_THAT(diagnosis.text(), HasSubstr(advice));
  diagnosis.optionsCameTooLate = false;
  EXPECT_THAT(diagnosis.text(), Not(HasSubstr(advice)));
}

// ---- When all is well

TEST_F(KXDiagnosisTest, TellsEachStepOfAMessageThatWasTaken) {
  startUp();
  device.advance(7);
  const KXDiagnosis now = diagnosis();
  EXPECT_EQ(now.time, start + 7);
  EXPECT_EQ(secondOf(now.publisherMade), 0);
  EXPECT_EQ(now.publisherMade->age, 7);
  EXPECT_EQ(now.entryCalls, 1u);
  EXPECT_EQ(now.apiToken, Argument::given);
  EXPECT_EQ(now.hostname, Argument::given);
  EXPECT_EQ(now.mainLoop, MainLoop::hasRun);
  EXPECT_EQ(secondOf(now.mainLoopServed), 5);
  EXPECT_FALSE(now.inBackground);
  EXPECT_EQ(now.login, Login::succeeded);
  EXPECT_EQ(secondOf(now.loginStarted), 0);
  EXPECT_NEAR(secondOf(now.loginEnded), 0.1, 1e-6);
  EXPECT_NEAR(secondOf(now.tokenReceived), 0.1, 1e-6);
  EXPECT_EQ(now.loginsStarted, 1u);
  EXPECT_EQ(now.retryDue, std::nullopt);
  EXPECT_EQ(now.identifier, Identifier::usable);
  EXPECT_EQ(secondOf(now.reportMade), 5);
  EXPECT_EQ(now.reportMade->age, 2);
  EXPECT_EQ(now.reportsMade, 1u);
  EXPECT_EQ(now.reportDropped, std::nullopt);
  EXPECT_EQ(now.reportsDropped, 0u);
  EXPECT_EQ(secondOf(now.handedOver), 5);
  EXPECT_EQ(now.reportsHandedOver, 1u);
  EXPECT_EQ(secondOf(now.sent), 5);
  EXPECT_EQ(now.messagesSent, 1u);
  EXPECT_EQ(now.delivery, Delivery::accepted);
  EXPECT_NEAR(secondOf(now.answered), 5.1, 1e-6);
  EXPECT_EQ(now.deliveryStatus, 200);
  EXPECT_EQ(now.messagesAccepted, 1u);
  EXPECT_EQ(now.text(), R"(Publisher: made 7 s ago
API token: given
Host name: given
Main loop: served the library 2 s ago
Application: in the foreground
Login: succeeded 7 s ago
Access token: received 7 s ago
Advertising identifier: usable
Reports: 1 report, the last 2 s ago
Handed over: 1 report, the last 2 s ago
Messages: 1 message sent, 1 accepted
Last message: sent 2 s ago, accepted 2 s ago with HTTP status 200

Nothing is wrong as far as the library can tell.
)");
}

TEST_F(KXDiagnosisTest, CountsOnAsReportsGoOn) {
  startUp();
  device.advance(1201);
  const KXDiagnosis now = diagnosis();
  EXPECT_EQ(now.reportsMade, 3u);
  EXPECT_EQ(now.reportsHandedOver, 3u);
  EXPECT_EQ(now.messagesSent, 3u);
  EXPECT_EQ(now.messagesAccepted, 3u);
  EXPECT_EQ(secondOf(now.mainLoopServed), 1200);
  EXPECT_THAT(now.text(), HasSubstr("Messages: 3 messages sent, 3 accepted\n"));
}

TEST_F(KXDiagnosisTest, NamesNoTokenNoIdentifierAndNoPosition) {
  service.script(Service::loginPath, {SimulatedReply::token("secret-access")});
  service.script(Service::messagePath, {SimulatedReply::status(500)});
  startUp();
  device.advance(6);
  const std::string text = diagnosis().text();
  EXPECT_THAT(text, Not(HasSubstr("secret")));
  EXPECT_THAT(text, Not(HasSubstr(*device.advertisingService->identifier)));
}

TEST_F(KXDiagnosisTest, ChangesNothing) {
  startUp();
  for (int i = 0; i < 700; ++i) {
    device.advance(1);
    static_cast<void>(diagnosis().text());
  }
  EXPECT_EQ(service.logins().size(), 1u);
  ASSERT_EQ(service.messages().size(), 2u);
  EXPECT_EQ(service.messages()[1].time, 600);
  EXPECT_THAT(service.messages()[1].text().value_or(""), HasSubstr("\"id\":\"simulated-2\""));
  EXPECT_TRUE(device.consoleService.lines.empty());
}

// ---- The start

TEST_F(KXDiagnosisTest, CountsTheHostsCalls) {
  startUp();
  EXPECT_THAT(diagnosis().text(), Not(HasSubstr("call was made")));
  startWith("other", "other");
  const KXDiagnosis now = diagnosis();
  EXPECT_EQ(now.entryCalls, 2u);
  EXPECT_THAT(now.text(),
              HasSubstr("- The host's call was made 2 times. Only the first one's arguments count."));
}

struct Arguments {
  const char *name;
  const char *apiToken;
  const char *hostname;
  Argument expectedToken;
  Argument expectedHost;
  const char *advice;
};

class KXDiagnosisArgumentsTest : public KXDiagnosisTest, public ::testing::WithParamInterface<Arguments> {};

TEST_P(KXDiagnosisArgumentsTest, AreJudged) {
  startWith(GetParam().apiToken, GetParam().hostname);
  EXPECT_EQ(diagnosis().apiToken, GetParam().expectedToken);
  EXPECT_EQ(diagnosis().hostname, GetParam().expectedHost);
  EXPECT_THAT(diagnosis().text(), HasSubstr(GetParam().advice));
}

INSTANTIATE_TEST_SUITE_P(All, KXDiagnosisArgumentsTest,
                         ::testing::Values(Arguments{"NoToken", nullptr, "a.example", Argument::absent,
                                                     Argument::given, "- There is no API token."},
                                           Arguments{"EmptyToken", "", "a.example", Argument::empty,
                                                     Argument::given, "- There is no API token."},
                                           Arguments{"NoHost", "T", nullptr, Argument::given,
                                                     Argument::absent, "- There is no host name."},
                                           Arguments{"EmptyHost", "T", "", Argument::given, Argument::empty,
                                                     "- There is no host name."},
                                           Arguments{"HostWithScheme", "T", "https://a.example",
                                                     Argument::given, Argument::malformed,
                                                     "- The host name is not one."},
                                           Arguments{"HostAndPort", "T", "a.example:8443", Argument::given,
                                                     Argument::given, "Host name: given\n"}),
                         [](const auto &one) { return std::string(one.param.name); });

TEST_F(KXDiagnosisTest, TellsThatTheMainLoopHasNotRun) {
  startUp();
  EXPECT_EQ(diagnosis().mainLoop, MainLoop::unknown);
  EXPECT_THAT(diagnosis().text(), HasSubstr("Main loop: not known yet\n"));
  device.clockService.atSwitchOn += 15;
  EXPECT_EQ(diagnosis().mainLoop, MainLoop::unknown);
  device.clockService.atSwitchOn += 1;
  const KXDiagnosis now = diagnosis();
  EXPECT_EQ(now.mainLoop, MainLoop::hasNotRun);
  EXPECT_EQ(now.mainLoopServed, std::nullopt);
  EXPECT_THAT(now.text(), HasSubstr("Main loop: has not served the library\n"));
  EXPECT_THAT(now.text(), HasSubstr("- The main loop has not served the library since the start"));
}

TEST_F(KXDiagnosisTest, TakesNoCallOfTheHostsForTheMainLoop) {
  startUp();
  publisher->logData(nullptr);
  publisher->kxLogger()->kxNetworking()->updateAccessToken(nullptr);
  EXPECT_EQ(diagnosis().mainLoopServed, std::nullopt);
}

TEST_F(KXDiagnosisTest, TellsThatTheMainLoopHasStopped) {
  startUp();
  device.advance(6);
  device.clockService.atSwitchOn += 659;
  EXPECT_THAT(diagnosis().text(), Not(HasSubstr("blocks the loop")));
  device.clockService.atSwitchOn += 1;
  EXPECT_THAT(diagnosis().text(), HasSubstr("blocks the loop"));
}

TEST_F(KXDiagnosisTest, TakesTheBackgroundForNoMainLoopThatHasStopped) {
  startUp();
  application.enterBackground();
  device.advance(1);
  KXDiagnosis now = diagnosis();
  EXPECT_EQ(now.mainLoop, MainLoop::hasRun);
  EXPECT_EQ(secondOf(now.mainLoopServed), 0);
  EXPECT_TRUE(now.inBackground);
  device.advance(7200);
  EXPECT_THAT(diagnosis().text(), HasSubstr("Application: in the background\n"));
  EXPECT_THAT(diagnosis().text(), HasSubstr("Nothing is wrong"));
  application.enterForeground();
  now = diagnosis();
  EXPECT_FALSE(now.inBackground);
  EXPECT_EQ(secondOf(now.mainLoopServed), 7201);
}

// ---- The gate

struct OneIdentifier {
  const char *name;
  std::optional<std::string> text;
  Identifier expected;
  const char *fact;
  const char *advice;
};

class KXDiagnosisIdentifierTest : public KXDiagnosisTest,
                                  public ::testing::WithParamInterface<OneIdentifier> {};

TEST_P(KXDiagnosisIdentifierTest, IsJudgedAtEachReport) {
  device.advertisingService->identifier = GetParam().text;
  startUp();
  EXPECT_EQ(diagnosis().identifier, Identifier::unknown);
  device.advance(601);
  const KXDiagnosis now = diagnosis();
  EXPECT_EQ(now.identifier, GetParam().expected);
  EXPECT_EQ(now.reportsMade, 2u);
  EXPECT_EQ(now.reportsDropped, 2u);
  EXPECT_EQ(now.drop, Drop::identifier);
  EXPECT_EQ(secondOf(now.reportDropped), 600);
  EXPECT_EQ(now.handedOver, std::nullopt);
  EXPECT_EQ(now.reportsHandedOver, 0u);
  EXPECT_THAT(now.text(), HasSubstr(std::string("Advertising identifier: ") + GetParam().fact + "\n"));
  EXPECT_THAT(
      now.text(),
      HasSubstr("Dropped: 2 reports, the last 1 s ago: there was no usable advertising identifier\n"));
  EXPECT_THAT(now.text(), HasSubstr("Messages: none sent\n"));
  EXPECT_THAT(now.text(), HasSubstr(GetParam().advice));
}

INSTANTIATE_TEST_SUITE_P(Unusable, KXDiagnosisIdentifierTest,
                         ::testing::Values(OneIdentifier{"Absent", std::nullopt, Identifier::absent, "absent",
                                                         "- There is no advertising identifier"},
                                           OneIdentifier{"AllZeros", "00000000-0000-0000-0000-000000000000",
                                                         Identifier::allZeros, "all zeros",
                                                         "- The advertising identifier is all zeros"}),
                         [](const auto &one) { return std::string(one.param.name); });

TEST_F(KXDiagnosisTest, TellsThatAProviderSaysThatTheIdentifierIsEmpty) {
  startUp();
  addFacts({{"ifa", ""}});
  device.advance(5);
  EXPECT_EQ(diagnosis().identifier, Identifier::empty);
  EXPECT_EQ(diagnosis().reportsDropped, 1u);
  EXPECT_THAT(diagnosis().text(), HasSubstr("Advertising identifier: empty\n"));
  EXPECT_THAT(diagnosis().text(), HasSubstr("- There is no advertising identifier"));
}

}  // namespace
}  // namespace kx
