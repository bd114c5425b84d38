#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "KXPublisher/diagnostics/KXDiagnosis.h"
#include "KXPublisher/platform/RunLoopTimer.h"
#include "KXPublisher/platform/foundation/AtomicNumber.h"
#include "KXPublisher/platform/foundation/AtomicProperty.h"
#include "KXPublisher/platform/foundation/Object.h"
#include "KXPublisher/platform/foundation/Value.h"

namespace kx {

namespace constants {
inline constexpr double loggingFirstTimeDelay = 5.0;  // seconds
inline constexpr double loggingTimeInterval = 600.0;  // seconds
inline constexpr const char *kxPublisherSdkName = "KXPublisher iOS";
inline constexpr const char *kxPublisherSdkVersion = "v1.0";
inline constexpr const char *dataKeyPublisherSdkName = "sdkName";
inline constexpr const char *dataKeyPublisherSdkVersion = "sdkVer";
inline constexpr const char *dataKeyIpAddresses = "ips";
inline constexpr const char *dataKeyEventId = "id";
inline constexpr const char *dataKeyEventTime = "eventTime";
}  // namespace constants

class KXData;
class KXLog;
class KXLogger;

/// Reports the context in which the host application runs to a collection service.
///
/// The host makes one call, on its main thread while it starts; from then on everything happens by itself:
///
///     kx::KXPublisher::sharedInstanceWithApiToken("the API token", "collect.example.com");
///
/// The constants that a host reads are in KXConstants.h.
///
/// A report is made 5 s after that call, every 600 s in the foreground, on each entry into the background and
/// 5 s after each return to the foreground. One without a usable advertising identifier is dropped, and one
/// that cannot be delivered is lost. No failure reaches the host: nothing here throws, and all but `data` and
/// `description` return at once. Everything may be called from any thread.
class KX_EXPORT KXPublisher : public Object {
 public:
  /// `sharedInstanceWithApiToken:hostname:`: the one publisher, made and started by the first call; later
  /// calls ignore their arguments. `hostname` may carry a port, "localhost:8443". Neither argument is
  /// validated: with an absent one nothing will ever be sent. A null pointer when there is no memory for a
  /// publisher: none is at work then, and another call makes one.
  static std::shared_ptr<KXPublisher> sharedInstanceWithApiToken(
      const std::optional<std::string> &apiToken, const std::optional<std::string> &hostname) noexcept;
  /// The same for C strings; a null pointer stands for an absent argument.
  static std::shared_ptr<KXPublisher> sharedInstanceWithApiToken(const char *apiToken,
                                                                 const char *hostname) noexcept;

  /// `initWithApiToken:hostname:`: a publisher of its own, running. Hosts use the shared one. A null pointer
  /// when there is no memory for it.
  static std::shared_ptr<KXPublisher> initWithApiToken(const std::optional<std::string> &apiToken,
                                                       const std::optional<std::string> &hostname) noexcept;

  /// What has happened in this process between the host's call and the service's answers, to find out why no
  /// message arrives. May be asked at any time, before that call, too; asking changes nothing.
  static KXDiagnosis diagnosis() noexcept;

  /// `dealloc`: stops the repeating report.
  ~KXPublisher() override;

  /// `enableDebugging`: lets the library's log print every level, in the whole process.
  void enableDebugging() noexcept;
  /// `disableDebugging`: back to errors only; they stay on.
  void disableDebugging() noexcept;

  /// `data`: a new message of what is known now: the providers' facts, later providers winning, under the
  /// publisher's own keys "sdkName", "sdkVer", "ips", "id" (new at each call) and "eventTime" (milliseconds
  /// since 1970, whole seconds). Empty when there is no memory for one.
  Dictionary data() const noexcept;

  /// `description`: such a message as text, for debugging; costs as much as `data`. Empty when there is no
  /// memory for it.
  std::string description() const noexcept override;

  /// `logData:`: what the report timers call: `logDataAsync:` with true.
  void logData(const std::shared_ptr<RunLoopTimer> &sender) noexcept;

  /// `logDataAsync:`: makes one message and, if its advertising identifier is present, not empty and not all
  /// zeros, hands it to the logger; otherwise drops it without a line in the log. A report for which there is
  /// no memory is lost, with a line.
  void logDataAsync(bool async) noexcept;

  /// `dataProviders`: in the order in which their facts are merged. Empty when there is no memory for the
  /// list.
  std::vector<std::shared_ptr<KXData>> dataProviders() const noexcept;
  /// `setDataProviders:`
  void setDataProviders(std::vector<std::shared_ptr<KXData>> dataProviders) noexcept {
    dataProviders_.set(std::move(dataProviders));
  }
  /// `kxLogger`: where messages go; without one they are dropped.
  std::shared_ptr<KXLogger> kxLogger() const noexcept { return kxLogger_.get(); }
  /// `setKxLogger:`
  void setKxLogger(std::shared_ptr<KXLogger> kxLogger) noexcept { kxLogger_.set(std::move(kxLogger)); }
  /// `logTimer`: the repeating report's timer; a null pointer in the background.
  std::shared_ptr<RunLoopTimer> logTimer() const noexcept { return logTimer_.get(); }
  /// `setLogTimer:`
  void setLogTimer(std::shared_ptr<RunLoopTimer> logTimer) noexcept { logTimer_.set(std::move(logTimer)); }
  /// `kxLog`: the library's log.
  std::shared_ptr<KXLog> kxLog() const noexcept { return kxLog_.get(); }
  /// `setKxLog:`
  void setKxLog(std::shared_ptr<KXLog> kxLog) noexcept { kxLog_.set(std::move(kxLog)); }

 private:
  KXPublisher() = default;

  /// What its handlers hold, and through it the publisher: for good, unless its making fails.
  using Held = std::shared_ptr<AtomicProperty<std::shared_ptr<KXPublisher>>>;

  KX_HIDDEN static std::shared_ptr<KXPublisher> make(const std::optional<std::string> &apiToken,
                                                     const std::optional<std::string> &hostname);
  KX_HIDDEN void init(const std::optional<std::string> &apiToken, const std::optional<std::string> &hostname);
  KX_HIDDEN std::shared_ptr<RunLoopTimer> scheduleReport(double timeInterval, bool repeats);
  KX_HIDDEN void repeatReports() noexcept;
  KX_HIDDEN void observeApplication(const Held &held);
  KX_HIDDEN Dictionary message() const;
  KX_HIDDEN void report(bool async);
  KX_HIDDEN void applicationDidEnterBackground();
  KX_HIDDEN void applicationWillEnterForeground();

  AtomicProperty<std::vector<std::shared_ptr<KXData>>> dataProviders_;
  AtomicProperty<std::shared_ptr<KXLogger>> kxLogger_;
  AtomicProperty<std::shared_ptr<RunLoopTimer>> logTimer_;
  AtomicProperty<std::shared_ptr<KXLog>> kxLog_;
  AtomicNumber<bool> inBackground_{false};
};

}  // namespace kx
