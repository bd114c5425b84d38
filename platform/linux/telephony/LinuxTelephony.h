#pragma once

#include <memory>
#include <mutex>

#include "KXPublisher/platform/Telephony.h"
#include "platform/linux/bus/SystemBus.h"
#include "platform/linux/telephony/ModemManagerClient.h"
#include "platform/linux/threads/LinuxRunLoop.h"

namespace kx {

/// The telephony of a device whose modems ModemManager looks after.
///
/// The bus is first asked for when the first telephony object is made. All objects share what has been read
/// from it: a later one knows at once what an earlier one has learned. Without a bus, or without ModemManager
/// on it, they know nothing, and learn it when it comes.
///
/// Notifiers are called on the main thread: when something is first known, and from then on when the carrier
/// has changed; not for another technology. Carriers that follow each other faster than ten a second are not
/// all reported, but the last one always is.
class LinuxTelephony : public TelephonyService {
 public:
  /// Touches nothing yet.
  LinuxTelephony(std::shared_ptr<LinuxRunLoop> mainRunLoop, std::shared_ptr<SystemBus> systemBus,
                 ModemManagerClient::Intervals intervals = ModemManagerClient::Intervals());
  ~LinuxTelephony() override;

  std::shared_ptr<TelephonyNetworkInfo> makeTelephonyNetworkInfo() override;

 private:
  class Subscriber;
  class NetworkInfo;

  const std::shared_ptr<LinuxRunLoop> mainRunLoop_;
  const std::shared_ptr<SystemBus> systemBus_;
  const ModemManagerClient::Intervals intervals_;
  const std::shared_ptr<Subscriber> subscriber_;
  std::once_flag busObserved_;
};

}  // namespace kx
