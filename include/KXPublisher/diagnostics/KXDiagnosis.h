#pragma once

#include <optional>
#include <string>

#include "KXPublisher/platform/foundation/Export.h"

namespace kx {

/// Why messages arrive, or do not: what has happened in this process on the road from the host's call to the
/// service's answer, as of the moment at which `KXPublisher::diagnosis` was called. A plain value. It holds
/// no message, and names no token, identifier or position.
///
///     std::cout << kx::KXPublisher::diagnosis().text();
///
/// It tells of the whole process: where a host makes publishers of its own, their events are among these.
struct KX_EXPORT KXDiagnosis {
  /// When something happened, by the device's clock.
  struct Moment {
    double at = 0;  ///< seconds since 1970
    double age =
        0;  ///< seconds before the diagnosis; negative for what is to come, and where the clock was set back
  };
  /// Absent: it has not happened.
  using When = std::optional<Moment>;

  /// An argument of the host's call. `unknown` before that call.
  enum class Argument {
    unknown,
    absent,
    empty,
    malformed,  ///< of a host name: not one, with or without a port
    given,
  };
  /// The advertising identifier in the last report. `unknown` before the first report.
  enum class Identifier { unknown, absent, empty, allZeros, usable };
  /// Whether the main loop has served the library since the publisher was made. `unknown` in the first
  /// seconds.
  enum class MainLoop { unknown, hasRun, hasNotRun };
  /// The last login.
  enum class Login {
    never,
    impossible,  ///< no request could be made: an argument is absent, or the host name makes no URL
    underWay,
    succeeded,
    refused,       ///< answered with `loginStatus`
    withoutToken,  ///< answered with success, `loginStatus`, but without an access token
    failed,        ///< not answered; `loginError` says why
  };
  /// Why the last dropped report was not sent.
  enum class Drop {
    none,
    identifier,  ///< it is not usable; see `identifier`
    noAccessToken,
    notSerialisable,  ///< a fact of a provider is no JSON: text that is not UTF-8, a number that is not
                      ///< finite
    noRequest,        ///< the host name makes no URL
    noTransport,      ///< the host has taken the transport client away
  };
  /// The last message that was sent.
  enum class Delivery {
    never,
    underWay,
    accepted,
    refused,  ///< answered with `deliveryStatus`
    failed,   ///< not answered; `deliveryError` says why
  };

  /// When this was asked, in seconds since 1970; 0 while nothing of the library has been used.
  double time = 0;

  // ---- The start
  When publisherMade;       ///< the last one, where there are several
  unsigned entryCalls = 0;  ///< calls of `sharedInstanceWithApiToken`; only the first one's arguments count
  Argument apiToken = Argument::unknown;
  Argument hostname = Argument::unknown;
  bool optionsCameTooLate =
      false;  ///< the host's options for its platform, which then have no effect (Linux)
  MainLoop mainLoop = MainLoop::unknown;
  When mainLoopServed;        ///< when a timer or a notification of the library last came on the main loop
  bool inBackground = false;  ///< as the application told; reports pause there

  // ---- The access token
  Login login = Login::never;
  When loginStarted;
  When loginEnded;
  long loginStatus = 0;    ///< HTTP status; 0 when the answer was none of HTTP
  std::string loginError;  ///< as in the log; empty unless it failed
  When tokenReceived;      ///< absent: no token is held
  When retryDue;           ///< absent: none is waiting
  unsigned loginsStarted = 0;

  // ---- Reports
  Identifier identifier = Identifier::unknown;
  When reportMade;
  unsigned reportsMade = 0;
  When reportDropped;
  Drop drop = Drop::none;
  unsigned reportsDropped = 0;
  When handedOver;  ///< when a report last passed the gate, on its way to the network
  unsigned reportsHandedOver = 0;

  // ---- Messages
  Delivery delivery = Delivery::never;
  When sent;
  unsigned messagesSent = 0;
  When answered;              ///< or given up
  long deliveryStatus = 0;    ///< HTTP status; 0 when the answer was none of HTTP
  std::string deliveryError;  ///< as in the log; empty unless it failed
  unsigned messagesAccepted = 0;

  /// All of it in plain words, a line each, and below it what is wrong and what to do about it.
  std::string text() const;
};

}  // namespace kx
