// What is told of logins and messages.

#include <limits>
#include <string>

#include "KXPublisher/publisher/KXLogger.h"
#include "tests/publisher/KXDiagnosisTest.h"

namespace kx {
namespace {

using Delivery = KXDiagnosis::Delivery;
using Drop = KXDiagnosis::Drop;
using Login = KXDiagnosis::Login;
using ::testing::HasSubstr;
using ::testing::Not;

// ---- The access token

TEST_F(KXDiagnosisTest, TellsThatNoLoginCanBeMade) {
  startWith("T", "not a host");
  device.advance(6);
  const KXDiagnosis now = diagnosis();
  EXPECT_EQ(now.login, Login::impossible);
  EXPECT_EQ(now.loginStarted, std::nullopt);
  EXPECT_EQ(now.loginsStarted, 0u);
  EXPECT_EQ(secondOf(now.loginEnded), 0);
  EXPECT_EQ(now.drop, Drop::noAccessToken);
  EXPECT_THAT(now.text(), HasSubstr("Login: impossible: no request could be made\n"));
  EXPECT_THAT(now.text(), HasSubstr("there was no access token\n"));
}

TEST_F(KXDiagnosisTest, TellsThatALoginIsUnderWay) {
  service.script(Service::loginPath, {SimulatedReply::silence()});
  startUp();
  device.advance(10);
  EXPECT_EQ(diagnosis().login, Login::underWay);
  EXPECT_EQ(diagnosis().loginEnded, std::nullopt);
  EXPECT_THAT(diagnosis().text(), HasSubstr("Login: under way, started 10 s ago\nAccess token: none\n"));
  EXPECT_THAT(diagnosis().text(), Not(HasSubstr("no answer")));
  device.clockService.atSwitchOn += 51;
  EXPECT_THAT(diagnosis().text(), HasSubstr("- The login has had no answer for more than a minute."));
}

TEST_F(KXDiagnosisTest, TellsHowALoginWasRefusedAndWhenItIsTriedAgain) {
  service.script(Service::loginPath, {SimulatedReply::status(401), SimulatedReply::status(503)});
  startUp();
  device.advance(10);
  KXDiagnosis now = diagnosis();
  EXPECT_EQ(now.login, Login::refused);
  EXPECT_EQ(now.loginStatus, 401);
  EXPECT_NEAR(secondOf(now.loginEnded), 0.1, 1e-6);
  EXPECT_EQ(now.tokenReceived, std::nullopt);
  EXPECT_NEAR(secondOf(now.retryDue), 300.1, 1e-6);
  EXPECT_NEAR(now.retryDue->age, -290.1, 1e-6);
  EXPECT_EQ(now.drop, Drop::noAccessToken);
  EXPECT_EQ(now.reportsHandedOver, 1u);
  EXPECT_THAT(now.text(), HasSubstr("Login: answered 10 s ago with HTTP status 401\nNext login: in 290 s\n"));
  EXPECT_THAT(now.text(), HasSubstr("- The service refuses the API token."));

  device.advance(291);
  now = diagnosis();
  EXPECT_EQ(now.loginStatus, 503);
  EXPECT_EQ(now.loginsStarted, 2u);
  EXPECT_NEAR(secondOf(now.mainLoopServed), 300.1, 1e-6);  // the retry timer
  EXPECT_NEAR(secondOf(now.retryDue), 900.2, 1e-6);
  EXPECT_THAT(now.text(), HasSubstr("- The service answered the login with HTTP status 503."));

  device.advance(600);
  now = diagnosis();
  EXPECT_EQ(now.login, Login::succeeded);
  EXPECT_EQ(now.loginStatus, 0);
  EXPECT_EQ(now.retryDue, std::nullopt);
  EXPECT_NEAR(secondOf(now.tokenReceived), 900.3, 1e-6);
}

TEST_F(KXDiagnosisTest, ForgetsARetryThatHasBegun) {
  service.script(Service::loginPath, {SimulatedReply::status(500), SimulatedReply::silence()});
  startUp();
  device.advance(310);
  EXPECT_EQ(diagnosis().login, Login::underWay);
  EXPECT_EQ(diagnosis().retryDue, std::nullopt);
}

TEST_F(KXDiagnosisTest, TellsWhyALoginFailed) {
  service.script(Service::loginPath, {SimulatedReply::failure("the network is down")});
  startUp();
  device.advance(1);
  const KXDiagnosis now = diagnosis();
  EXPECT_EQ(now.login, Login::failed);
  EXPECT_EQ(now.loginStatus, 0);
  EXPECT_THAT(now.loginError, HasSubstr("the network is down"));
  EXPECT_THAT(now.text(), HasSubstr(": " + now.loginError + "\n"));
  EXPECT_THAT(now.text(), HasSubstr("- The service could not be reached for the login."));
  device.advance(301);
  EXPECT_EQ(diagnosis().loginError, "");
}

TEST_F(KXDiagnosisTest, TellsThatALoginGaveNoToken) {
  service.script(Service::loginPath, {SimulatedReply::status(204)});
  startUp();
  device.advance(1);
  EXPECT_EQ(diagnosis().login, Login::withoutToken);
  EXPECT_EQ(diagnosis().loginStatus, 204);
  EXPECT_THAT(diagnosis().text(), HasSubstr("with HTTP status 204, without an access token\n"));
  EXPECT_THAT(diagnosis().text(), HasSubstr("- What answered the login gave no access token."));
}

TEST_F(KXDiagnosisTest, TellsThatTheAnswerIsNoneOfHTTP) {
  SimulatedReply reply;
  reply.isHTTP = false;
  service.script(Service::loginPath, {reply});
  startUp();
  device.advance(1);
  EXPECT_EQ(diagnosis().login, Login::refused);
  EXPECT_EQ(diagnosis().loginStatus, 0);
  EXPECT_THAT(diagnosis().text(), HasSubstr("with no answer of HTTP\n"));
  EXPECT_THAT(diagnosis().text(), HasSubstr("- What answered the login does not speak HTTP."));
}

TEST_F(KXDiagnosisTest, TellsThatTheClockWasSetBack) {
  startUp();
  device.advance(10);
  device.clockService.atSwitchOn -= 3600;
  const KXDiagnosis now = diagnosis();
  EXPECT_NEAR(now.tokenReceived->age, -3590.1, 1e-6);
  EXPECT_THAT(now.text(), HasSubstr("- The clock was set back since the access token came."));
}

// ---- Reports and messages

TEST_F(KXDiagnosisTest, TellsThatAFactIsNoJSON) {
  startUp();
  addFacts({{"speed", std::numeric_limits<double>::infinity()}});
  device.advance(5);
  const KXDiagnosis now = diagnosis();
  EXPECT_EQ(now.drop, Drop::notSerialisable);
  EXPECT_EQ(now.reportsDropped, 1u);
  EXPECT_EQ(now.sent, std::nullopt);
  EXPECT_THAT(now.text(), HasSubstr(": a provider's fact is no JSON\n"));
  EXPECT_THAT(now.text(), HasSubstr("- A provider's fact is no JSON"));
}

TEST_F(KXDiagnosisTest, TellsThatTheTransportIsGone) {
  startUp();
  device.advance(1);
  publisher->kxLogger()->setKxNetworking(nullptr);
  device.advance(5);
  EXPECT_EQ(diagnosis().drop, Drop::noTransport);
  EXPECT_THAT(diagnosis().text(), HasSubstr(": there was no transport client\n"));
  EXPECT_THAT(diagnosis().text(), HasSubstr("- The logger has no transport client"));
}

TEST_F(KXDiagnosisTest, TellsThatAMessageIsUnderWay) {
  service.script(Service::messagePath, {SimulatedReply::silence()});
  startUp();
  device.advance(6);
  EXPECT_EQ(diagnosis().delivery, Delivery::underWay);
  EXPECT_EQ(diagnosis().answered, std::nullopt);
  EXPECT_THAT(diagnosis().text(), HasSubstr("Last message: sent 1 s ago, under way\n"));
}

TEST_F(KXDiagnosisTest, TellsHowAMessageWasRefused) {
  service.script(Service::messagePath, {SimulatedReply::status(500), SimulatedReply::status(299),
                                        SimulatedReply::status(300), SimulatedReply::status(199)});
  startUp();
  device.advance(6);
  KXDiagnosis now = diagnosis();
  EXPECT_EQ(now.delivery, Delivery::refused);
  EXPECT_EQ(now.deliveryStatus, 500);
  EXPECT_NEAR(secondOf(now.answered), 5.1, 1e-6);
  EXPECT_EQ(now.messagesAccepted, 0u);
  EXPECT_THAT(now.text(), HasSubstr("refused 1 s ago with HTTP status 500\n"));
  EXPECT_THAT(now.text(), HasSubstr("- The service did not take the last message: HTTP status 500."));
  device.advance(600);
  now = diagnosis();
  EXPECT_EQ(now.delivery, Delivery::accepted);
  EXPECT_EQ(now.deliveryStatus, 299);
  EXPECT_EQ(now.messagesAccepted, 1u);
  for (const long status : {300, 199}) {
    device.advance(600);
    EXPECT_EQ(diagnosis().delivery, Delivery::refused);
    EXPECT_EQ(diagnosis().deliveryStatus, status);
    EXPECT_EQ(diagnosis().messagesAccepted, 1u);
  }
}

TEST_F(KXDiagnosisTest, TellsThatAnAccessTokenWasRefused) {
  startUp();
  device.advance(1);
  service.revokeTokens();
  device.advance(5);
  const KXDiagnosis now = diagnosis();
  EXPECT_EQ(now.deliveryStatus, 403);
  EXPECT_EQ(now.loginsStarted, 2u);
  EXPECT_EQ(now.login, Login::succeeded);
  EXPECT_THAT(now.text(), HasSubstr("- The service refused the access token of the last message."));
}

TEST_F(KXDiagnosisTest, TellsWhyAMessageFailed) {
  service.script(Service::messagePath, {SimulatedReply::failure("the server is gone")});
  startUp();
  device.advance(6);
  const KXDiagnosis now = diagnosis();
  EXPECT_EQ(now.delivery, Delivery::failed);
  EXPECT_EQ(now.deliveryStatus, 0);
  EXPECT_THAT(now.deliveryError, HasSubstr("the server is gone"));
  EXPECT_THAT(now.text(), HasSubstr(", failed 1 s ago: " + now.deliveryError + "\n"));
  EXPECT_THAT(now.text(), HasSubstr("- The last message could not be delivered and is lost."));
  device.advance(600);
  EXPECT_EQ(diagnosis().deliveryError, "");
}

}  // namespace
}  // namespace kx
