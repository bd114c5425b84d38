#include "diagnostics/Advice.h"

#include <string_view>
#include <utility>

#include "KXPublisher/platform/foundation/StringFormat.h"

namespace kx {

namespace {

constexpr double timeBetweenReports = 600;  // seconds
constexpr double patience = 60;             // seconds; for what is late, but may still come

constexpr long unauthorized = 401;
constexpr long forbidden = 403;

class Advice {
 public:
  explicit Advice(const KXDiagnosis &diagnosis) : diagnosis_(diagnosis) {}

  std::string text() {
    if (!diagnosis_.publisherMade) {
      say("The host has not made its call. Call sharedInstanceWithApiToken once, on the main thread, at the "
          "start.");
      if (diagnosis_.optionsCameTooLate) options();
      return std::move(text_);
    }
    arguments();
    if (diagnosis_.optionsCameTooLate) options();
    mainLoop();
    identifier();
    login();
    messages();
    return std::move(text_);
  }

 private:
  using Argument = KXDiagnosis::Argument;
  using Drop = KXDiagnosis::Drop;
  using Identifier = KXDiagnosis::Identifier;
  using Login = KXDiagnosis::Login;
  using Delivery = KXDiagnosis::Delivery;

  void say(std::string_view sentences) { text_.append("- ").append(sentences).append("\n"); }

  void options() {
    say("The host's options came after the library had been used, and have no effect, an advertising "
        "identifier among them included. Call setOptions before anything else of the library, and look at "
        "what it returns.");
  }

  void arguments() {
    if (diagnosis_.apiToken == Argument::absent || diagnosis_.apiToken == Argument::empty) {
      say("There is no API token. Give the one that the service knows the application by.");
    }
    if (diagnosis_.hostname == Argument::absent || diagnosis_.hostname == Argument::empty) {
      say("There is no host name. Give the service's, like collect.example.com or collect.example.com:8443.");
    } else if (diagnosis_.hostname == Argument::malformed) {
      say("The host name is not one. Give a name alone, in ASCII, and maybe a colon and a port: no https://, "
          "no path, no blank.");
    }
    if (diagnosis_.entryCalls > 1) {
      say(stringWithFormat("The host's call was made %u times. Only the first one's arguments count.",
                           {diagnosis_.entryCalls}));
    }
  }

  void mainLoop() {
    if (diagnosis_.mainLoop == KXDiagnosis::MainLoop::hasNotRun) {
      say("The main loop has not served the library since the start, so no report is ever made. Run the "
          "platform's main loop: on Linux GLib's default main context, on iOS the application's. Do not "
          "block it.");
    } else if (diagnosis_.mainLoopServed && !diagnosis_.inBackground &&
               diagnosis_.mainLoopServed->age > timeBetweenReports + patience) {
      say("The main loop has not served the library for longer than the time between two reports. Unless the "
          "device was asleep, something blocks the loop, or it has ended.");
    }
  }

  void identifier() {
    switch (diagnosis_.identifier) {
      case Identifier::absent:
      case Identifier::empty:
        say("There is no advertising identifier, and no message is sent without one. On Linux the host gives "
            "it in its options; on iOS the system has one where the device lets apps ask.");
        break;
      case Identifier::allZeros:
        say("The advertising identifier is all zeros: the user limits tracking, or has not been asked. "
            "Messages are not sent then, as it should be. On iOS ask for permission to track before the "
            "host's call.");
        break;
      case Identifier::usable:
      case Identifier::unknown:
        break;
    }
  }

  void login() {
    switch (diagnosis_.login) {
      case Login::refused:
        if (diagnosis_.loginStatus == unauthorized || diagnosis_.loginStatus == forbidden) {
          say("The service refuses the API token. Check that it is the right one for this service.");
        } else if (diagnosis_.loginStatus == 0) {
          say("What answered the login does not speak HTTP. Check the host name and its port.");
        } else {
          say(stringWithFormat(
              "The service answered the login with HTTP status %ld. Check the host name and its port, and "
              "the service itself.",
              {diagnosis_.loginStatus}));
        }
        break;
      case Login::withoutToken:
        say("What answered the login gave no access token. Check that the host name is the collection "
            "service's, and that nothing in between (a proxy, a hotspot's login page) answers for it.");
        break;
      case Login::failed:
        say("The service could not be reached for the login. See the error above: whether the network is up, "
            "the host name and its port right, the device's clock right, and the certificate from an "
            "authority that the device trusts.");
        break;
      case Login::underWay:
        if (diagnosis_.loginStarted && diagnosis_.loginStarted->age > patience) {
          say("The login has had no answer for more than a minute. Check the network and the service.");
        }
        break;
      case Login::never:
      case Login::impossible:
      case Login::succeeded:
        break;
    }
    const auto &token = diagnosis_.tokenReceived;
    if (token && token->age < 0) {
      say("The clock was set back since the access token came. Until it has caught up no new token is asked "
          "for.");
    }
  }

  void messages() {
    const auto &dropped = diagnosis_.reportDropped;
    if (dropped && diagnosis_.drop == Drop::notSerialisable) {
      say("A provider's fact is no JSON: text that is not UTF-8, or a number that is not finite. Look at the "
          "providers that the host has added.");
    }
    if (dropped && diagnosis_.drop == Drop::noTransport) {
      say("The logger has no transport client: the host has taken it away.");
    }
    switch (diagnosis_.delivery) {
      case Delivery::refused:
        if (diagnosis_.deliveryStatus == forbidden) {
          say("The service refused the access token of the last message. A new one is asked for; the next "
              "report should pass. If it is refused again and again, look into the service.");
        } else {
          say(stringWithFormat(
              "The service did not take the last message: HTTP status %ld. It is lost; look into the "
              "service.",
              {diagnosis_.deliveryStatus}));
        }
        break;
      case Delivery::failed:
        say("The last message could not be delivered and is lost. See the error above: whether the network "
            "is up, and the service reachable.");
        break;
      case Delivery::never:
      case Delivery::underWay:
      case Delivery::accepted:
        break;
    }
  }

  const KXDiagnosis &diagnosis_;
  std::string text_;
};

}  // namespace

std::string adviceFor(const KXDiagnosis &diagnosis) {
  return Advice(diagnosis).text();
}

}  // namespace kx
