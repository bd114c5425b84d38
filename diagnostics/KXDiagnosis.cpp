#include "KXPublisher/diagnostics/KXDiagnosis.h"

#include <cmath>
#include <string_view>
#include <utility>

#include "KXPublisher/platform/foundation/StringFormat.h"
#include "diagnostics/Advice.h"

namespace kx {

namespace {

using Moment = KXDiagnosis::Moment;
using When = KXDiagnosis::When;

/// "12 s ago", "in 288 s".
std::string relative(const Moment &moment) {
  const long seconds = std::lround(moment.age);
  if (seconds >= 0) return stringWithFormat("%ld s ago", {seconds});
  return stringWithFormat("in %ld s", {-seconds});
}

std::string relative(const When &when) {
  return when ? relative(*when) : "never";
}

/// "1 report", "2 reports".
std::string counted(unsigned count, const char *thing) {
  return stringWithFormat(count == 1 ? "%u %@" : "%u %@s", {count, thing});
}

const char *describe(KXDiagnosis::Argument argument) {
  switch (argument) {
    case KXDiagnosis::Argument::absent:
      return "absent";
    case KXDiagnosis::Argument::empty:
      return "empty";
    case KXDiagnosis::Argument::malformed:
      return "not one";
    case KXDiagnosis::Argument::given:
      return "given";
    case KXDiagnosis::Argument::unknown:
      break;
  }
  return "not known yet";
}

const char *describe(KXDiagnosis::Identifier identifier) {
  switch (identifier) {
    case KXDiagnosis::Identifier::absent:
      return "absent";
    case KXDiagnosis::Identifier::empty:
      return "empty";
    case KXDiagnosis::Identifier::allZeros:
      return "all zeros";
    case KXDiagnosis::Identifier::usable:
      return "usable";
    case KXDiagnosis::Identifier::unknown:
      break;
  }
  return "not known before the first report";
}

const char *describe(KXDiagnosis::Drop drop) {
  switch (drop) {
    case KXDiagnosis::Drop::identifier:
      return "there was no usable advertising identifier";
    case KXDiagnosis::Drop::noAccessToken:
      return "there was no access token";
    case KXDiagnosis::Drop::notSerialisable:
      return "a provider's fact is no JSON";
    case KXDiagnosis::Drop::noRequest:
      return "no request could be made";
    case KXDiagnosis::Drop::noTransport:
      return "there was no transport client";
    case KXDiagnosis::Drop::none:
      break;
  }
  return "";
}

std::string answered(long status) {
  return status == 0 ? "with no answer of HTTP" : stringWithFormat("with HTTP status %ld", {status});
}

/// What is known, a line each.
class Facts {
 public:
  explicit Facts(const KXDiagnosis &diagnosis) : diagnosis_(diagnosis) {}

  std::string text() {
    start();
    accessToken();
    reports();
    messages();
    return std::move(text_);
  }

 private:
  void line(std::string_view what, std::string_view how) {
    text_ += stringWithFormat("%@: %@\n", {what, how});
  }

  void start() {
    line("Publisher", diagnosis_.publisherMade ? "made " + relative(diagnosis_.publisherMade) : "not made");
    line("API token", describe(diagnosis_.apiToken));
    line("Host name", describe(diagnosis_.hostname));
    if (diagnosis_.optionsCameTooLate) line("Host's options", "came too late");
    std::string loop = "not known yet";
    if (diagnosis_.mainLoop == KXDiagnosis::MainLoop::hasRun) {
      loop = "served the library " + relative(diagnosis_.mainLoopServed);
    } else if (diagnosis_.mainLoop == KXDiagnosis::MainLoop::hasNotRun) {
      loop = "has not served the library";
    }
    line("Main loop", loop);
    line("Application", diagnosis_.inBackground ? "in the background" : "in the foreground");
  }

  void accessToken() {
    line("Login", login());
    if (diagnosis_.retryDue) line("Next login", relative(diagnosis_.retryDue));
    line("Access token",
         diagnosis_.tokenReceived ? "received " + relative(diagnosis_.tokenReceived) : "none");
  }

  std::string login() {
    const std::string ended = relative(diagnosis_.loginEnded);
    switch (diagnosis_.login) {
      case KXDiagnosis::Login::impossible:
        return "impossible: no request could be made";
      case KXDiagnosis::Login::underWay:
        return stringWithFormat("under way, started %@", {relative(diagnosis_.loginStarted)});
      case KXDiagnosis::Login::succeeded:
        return stringWithFormat("succeeded %@", {ended});
      case KXDiagnosis::Login::refused:
        return stringWithFormat("answered %@ %@", {ended, answered(diagnosis_.loginStatus)});
      case KXDiagnosis::Login::withoutToken:
        return stringWithFormat("answered %@ %@, without an access token",
                                {ended, answered(diagnosis_.loginStatus)});
      case KXDiagnosis::Login::failed:
        return stringWithFormat("failed %@: %@", {ended, diagnosis_.loginError});
      case KXDiagnosis::Login::never:
        break;
    }
    return "never";
  }

  static std::string reports(unsigned count, const When &last) {
    return stringWithFormat("%@, the last %@", {counted(count, "report"), relative(last)});
  }

  void reports() {
    line("Advertising identifier", describe(diagnosis_.identifier));
    line("Reports",
         diagnosis_.reportMade ? reports(diagnosis_.reportsMade, diagnosis_.reportMade) : "none yet");
    // In this order: what was handed over may be dropped on its way.
    if (diagnosis_.handedOver) {
      line("Handed over", reports(diagnosis_.reportsHandedOver, diagnosis_.handedOver));
    }
    if (diagnosis_.reportDropped) {
      line("Dropped",
           stringWithFormat("%@: %@", {reports(diagnosis_.reportsDropped, diagnosis_.reportDropped),
                                       describe(diagnosis_.drop)}));
    }
  }

  void messages() {
    if (!diagnosis_.sent) {
      line("Messages", "none sent");
      return;
    }
    line("Messages", stringWithFormat("%@ sent, %u accepted", {counted(diagnosis_.messagesSent, "message"),
                                                               diagnosis_.messagesAccepted}));
    line("Last message", stringWithFormat("sent %@, %@", {relative(diagnosis_.sent), delivery()}));
  }

  std::string delivery() {
    const std::string ended = relative(diagnosis_.answered);
    switch (diagnosis_.delivery) {
      case KXDiagnosis::Delivery::accepted:
        return stringWithFormat("accepted %@ %@", {ended, answered(diagnosis_.deliveryStatus)});
      case KXDiagnosis::Delivery::refused:
        return stringWithFormat("refused %@ %@", {ended, answered(diagnosis_.deliveryStatus)});
      case KXDiagnosis::Delivery::failed:
        return stringWithFormat("failed %@: %@", {ended, diagnosis_.deliveryError});
      case KXDiagnosis::Delivery::underWay:
      case KXDiagnosis::Delivery::never:
        break;
    }
    return "under way";
  }

  const KXDiagnosis &diagnosis_;
  std::string text_;
};

}  // namespace

std::string KXDiagnosis::text() const {
  std::string text = Facts(*this).text();
  const std::string advice = adviceFor(*this);
  if (!advice.empty()) {
    text.append("\nWhat to do:\n").append(advice);
  } else {
    text.append("\nNothing is wrong as far as the library can tell.");
    text.append(reportMade ? "\n" : " The first report is made 5 s after the host's call.\n");
  }
  return text;
}

}  // namespace kx
