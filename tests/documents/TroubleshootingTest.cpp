// Plays the rows of docs/troubleshooting.md: what happens, what the log says, and what the diagnosis advises.
// Each row names its test.

#include <KXPublisher/KXPublisher.hpp>
#include <limits>
#include <string>
#include <vector>

#include "KXPublisher/diagnostics/KXLog.h"
#include "KXPublisher/publisher/KXLogger.h"
#include "tests/providers/TestProvider.h"
#include "tests/support/SimulatedTest.h"

namespace kx {
namespace {

using Service = SimulatedCollectionService;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

class Troubleshooting : public SimulatedTest {
 protected:
  Service &service = device.service;
  std::vector<std::string> &lines = device.consoleService.lines;
  std::shared_ptr<KXPublisher> publisher;

  void start(const char *apiToken = "token", const char *hostname = "collect.example.com") {
    publisher = KXPublisher::sharedInstanceWithApiToken(apiToken, hostname);
  }
  /// Starts while logins fail for that reason, and expects the one line and the advice.
  void expectLoginToFailBecause(const std::string &reason) {
    service.script(Service::loginPath, {SimulatedReply::failure(reason)});
    start();
    device.advance(6);
    EXPECT_THAT(lines, ElementsAre(StartsWith("[KX Error] Error getting access token: ")));
    EXPECT_THAT(lines.at(0), HasSubstr(reason));
    EXPECT_THAT(service.messages(), IsEmpty());
    EXPECT_THAT(text(), HasSubstr(reason));
    EXPECT_THAT(text(), HasSubstr("- The service could not be reached for the login."));
  }
  static std::string text() { return KXPublisher::diagnosis().text(); }
  /// The last message that arrived.
  std::string lastMessage() const { return service.messages().back().text().value_or(""); }
};

// ---- Lines

TEST_F(Troubleshooting, ALoginWithoutAnAnswer) {
  service.script(Service::loginPath, std::vector<SimulatedReply>(7, SimulatedReply::failure("gone")));
  start();
  device.advance(86400);
  std::vector<double> pauses;
  const auto logins = service.logins();
  for (std::size_t i = 1; i < logins.size(); ++i)
    pauses.push_back(std::round(logins[i].time - logins[i - 1].time));
  EXPECT_THAT(pauses, ElementsAre(300, 600, 1200, 2400, 3600, 3600, 3600));
  EXPECT_EQ(lines.size(), 7u);
}

TEST_F(Troubleshooting, AHostThatCannotBeResolved) {
  expectLoginToFailBecause("Could not resolve host: collect.example.com");
}

TEST_F(Troubleshooting, ANetworkThatIsDown) {
  expectLoginToFailBecause("The Internet connection appears to be offline.");
}

TEST_F(Troubleshooting, ACertificateThatIsNotTrusted) {
  expectLoginToFailBecause("SSL certificate problem: unable to get local issuer certificate");
}

TEST_F(Troubleshooting, ASilentServer) {
  service.script(Service::loginPath, {SimulatedReply::silence()});
  start();
  device.advance(59);
  EXPECT_THAT(lines, IsEmpty());
  EXPECT_THAT(text(), HasSubstr("Login: under way"));
  device.advance(2);
  EXPECT_THAT(lines, ElementsAre(StartsWith("[KX Error] Error getting access token: ")));
  EXPECT_THAT(text(), HasSubstr("Login: failed"));
}

TEST_F(Troubleshooting, ALoginThatIsRefused) {
  service.script(Service::loginPath,
                 {SimulatedReply::status(401), SimulatedReply::status(403), SimulatedReply::status(404)});
  start();
  device.advance(1);
  EXPECT_THAT(text(), HasSubstr("- The service refuses the API token."));
  device.advance(300);
  EXPECT_THAT(text(), HasSubstr("- The service refuses the API token."));
  device.advance(600);
  EXPECT_THAT(text(), HasSubstr("- The service answered the login with HTTP status 404."));
  EXPECT_THAT(lines, ElementsAre("[KX Error] Error getting token. HTTP status: 401",
                                 "[KX Error] Error getting token. HTTP status: 403",
                                 "[KX Error] Error getting token. HTTP status: 404"));
}

TEST_F(Troubleshooting, ALoginWithoutAToken) {
  service.script(Service::loginPath, {SimulatedReply::status(200)});
  start();
  device.advance(6);
  EXPECT_THAT(lines,
              ElementsAre(StartsWith("[KX Error] getAccessToken received success status code 200, but no "
                                     "access token found. Headers: ")));
  EXPECT_THAT(text(), HasSubstr("- What answered the login gave no access token."));
}

TEST_F(Troubleshooting, AMessageWithoutAnAnswer) {
  service.script(Service::messagePath, {SimulatedReply::failure("gone")});
  start();
  device.advance(6);
  EXPECT_THAT(lines, ElementsAre(StartsWith("[KX Error] Error sending data: "),
                                 "[KX Error] Error sending data. HTTP status: 0"));
  EXPECT_THAT(text(), HasSubstr("- The last message could not be delivered and is lost."));
  device.advance(600);
  EXPECT_THAT(text(), HasSubstr("Nothing is wrong"));
}

TEST_F(Troubleshooting, AMessageThatIsRefused) {
  service.script(Service::messagePath, {SimulatedReply::status(500)});
  start();
  device.advance(6);
  EXPECT_THAT(lines, ElementsAre("[KX Error] Error sending data. HTTP status: 500"));
  EXPECT_THAT(text(), HasSubstr("- The service did not take the last message: HTTP status 500."));
}

TEST_F(Troubleshooting, AnAccessTokenThatHasExpired) {
  start();
  device.advance(1);
  service.revokeTokens();
  device.advance(5);
  EXPECT_THAT(lines, ElementsAre("[KX Error] Error sending data. Calling updateAccessToken:"));
  EXPECT_THAT(text(), HasSubstr("- The service refused the access token of the last message."));
  device.advance(600);
  EXPECT_EQ(lines.size(), 1u);
  EXPECT_THAT(text(), HasSubstr("Nothing is wrong"));
}

// ---- Silences

TEST_F(Troubleshooting, NoCall) {
  device.advance(3600);
  EXPECT_THAT(service.requests, IsEmpty());
  EXPECT_THAT(text(), HasSubstr("- The host has not made its call."));
}

TEST_F(Troubleshooting, NoArguments) {
  start(nullptr, nullptr);
  device.advance(3600);
  EXPECT_THAT(service.requests, IsEmpty());
  EXPECT_THAT(lines, IsEmpty());
  EXPECT_THAT(text(), HasSubstr("- There is no API token."));
  EXPECT_THAT(text(), HasSubstr("- There is no host name."));
}

TEST_F(Troubleshooting, AHostNameThatIsNone) {
  start("token", "collect example com");
  device.advance(3600);
  EXPECT_THAT(service.requests, IsEmpty());
  EXPECT_THAT(lines, IsEmpty());
  EXPECT_THAT(text(), HasSubstr("- The host name is not one."));
  EXPECT_THAT(text(), HasSubstr("Login: impossible"));
}

TEST_F(Troubleshooting, ASecondCall) {
  start();
  start("token", "other.example.com");
  device.advance(6);
  EXPECT_THAT(service.requests.back().url, StartsWith("https://collect.example.com/"));
  EXPECT_THAT(lines, IsEmpty());
  EXPECT_THAT(text(), HasSubstr("Only the first one's arguments count."));
}

TEST_F(Troubleshooting, NoIdentifier) {
  device.advertisingService->identifier = std::nullopt;
  start();
  device.advance(3600);
  EXPECT_EQ(service.logins().size(), 1u);
  EXPECT_THAT(service.messages(), IsEmpty());
  EXPECT_THAT(lines, IsEmpty());
  EXPECT_THAT(text(), HasSubstr("- There is no advertising identifier"));
}

TEST_F(Troubleshooting, AnIdentifierOfZeros) {
  device.advertisingService->identifier = "00000000-0000-0000-0000-000000000000";
  start();
  device.advance(10);
  device.advertisingService->identifier =
      "6D92078A-8246-4BA4-AE5B-76104861E7DC";  // the user agrees, too late
  device.advance(3600);
  EXPECT_THAT(service.messages(), IsEmpty());
  EXPECT_THAT(lines, IsEmpty());
  EXPECT_THAT(text(), HasSubstr("- The advertising identifier is all zeros"));
}

TEST_F(Troubleshooting, AShortLife) {
  start();
  device.advance(4.9);
  EXPECT_EQ(service.logins().size(), 1u);
  EXPECT_THAT(service.messages(), IsEmpty());
  EXPECT_THAT(text(), HasSubstr("Reports: none yet\n"));
}

TEST_F(Troubleshooting, ReportsWithoutAToken) {
  service.script(Service::loginPath, {SimulatedReply::status(500)});
  start();
  device.advance(299);
  EXPECT_EQ(lines.size(), 1u);  // the login's
  EXPECT_THAT(text(), HasSubstr("the last 294 s ago: there was no access token\n"));
  EXPECT_THAT(text(), HasSubstr("Next login: in 1 s\n"));
  device.advance(302);
  EXPECT_EQ(service.messages().size(), 1u);
}

TEST_F(Troubleshooting, AClockThatWasSetBack) {
  start();
  device.advance(6);
  device.clockService.atSwitchOn -= 7200;
  service.revokeTokens();
  device.advance(1800);
  EXPECT_EQ(service.logins().size(), 1u);
  EXPECT_EQ(lines.size(), 3u);
  EXPECT_THAT(lines, ::testing::Each("[KX Error] Error sending data. Calling updateAccessToken:"));
  EXPECT_THAT(text(), HasSubstr("- The clock was set back since the access token came."));
}

TEST_F(Troubleshooting, AFactThatIsNoJSON) {
  start();
  const auto provider = TestProvider::make();
  device.advance(1);
  provider->updateData(std::make_shared<MutableDictionary>(Dictionary{{"name", "\xff"}}));
  auto providers = publisher->dataProviders();
  providers.push_back(provider);
  publisher->setDataProviders(providers);
  device.advance(601);
  EXPECT_THAT(service.messages(), IsEmpty());
  EXPECT_THAT(lines, IsEmpty());
  EXPECT_THAT(text(), HasSubstr("- A provider's fact is no JSON"));
}

TEST_F(Troubleshooting, NoTransport) {
  start();
  publisher->kxLogger()->setKxNetworking(nullptr);
  device.advance(3600);
  EXPECT_THAT(service.messages(), IsEmpty());
  EXPECT_THAT(lines, IsEmpty());
  EXPECT_THAT(text(), HasSubstr("- The logger has no transport client"));
}

TEST_F(Troubleshooting, TheBackground) {
  start();
  device.advance(10);
  device.application->enterBackground();
  device.advance(3600);
  EXPECT_EQ(service.messages().size(), 2u);
  EXPECT_THAT(text(), HasSubstr("Application: in the background\n"));
  device.application->enterForeground();
  device.advance(6);
  EXPECT_EQ(service.messages().size(), 3u);
}

TEST_F(Troubleshooting, ALogThatIsOff) {
  KXLog::sharedInstance()->setLogLevel(KXLogLevelOff);
  service.script(Service::loginPath, {SimulatedReply::status(401)});
  start();
  device.advance(10);
  EXPECT_THAT(lines, IsEmpty());
  EXPECT_THAT(text(), HasSubstr("with HTTP status 401"));
}

TEST_F(Troubleshooting, NoLocation) {
  device.locationService.position = Location{{52.52, 13.405}, 12.5, 34.0, 3.0};
  device.locationService.status = AuthorizationStatus::denied;
  start();
  device.advance(6);
  EXPECT_THAT(lastMessage(), Not(HasSubstr("\"lat\"")));
  EXPECT_THAT(lines, IsEmpty());
}

TEST_F(Troubleshooting, NoTableOfPlaces) {
  device.locationService.position = Location{{52.52, 13.405}, 12.5, 34.0, 3.0};
  device.locationService.geocoderPresent = false;
  start();
  device.advance(6);
  EXPECT_THAT(lastMessage(), HasSubstr("\"lat\":52.52"));
  EXPECT_THAT(lastMessage(), Not(HasSubstr("\"country\"")));
  EXPECT_THAT(lines, IsEmpty());
}

TEST_F(Troubleshooting, NoModem) {
  device.telephonyService.carrier = std::nullopt;
  device.telephonyService.radioAccessTechnology = std::nullopt;
  start();
  device.advance(6);
  EXPECT_THAT(lastMessage(), Not(HasSubstr("\"carrierCode\"")));
  EXPECT_THAT(lastMessage(), Not(HasSubstr("\"radioAccessTechnology\"")));
  EXPECT_THAT(lines, IsEmpty());
}

TEST_F(Troubleshooting, InterfacesOfOtherNames) {
  device.interfaces.entries = {{"wlan0", AddressFamily::inet, {192, 168, 1, 20}}};
  start();
  device.advance(6);
  EXPECT_THAT(lastMessage(), HasSubstr("\"ips\":[]"));
  EXPECT_THAT(lines, IsEmpty());
}

}  // namespace
}  // namespace kx
