#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/linux/telephony/LinuxTelephony.h"
#include "tests/platform/linux/MainLoop.h"
#include "tests/support/PrivateBus.h"

namespace kx {

/// The operator's code as the messages have it, "262-01"; "none" without a carrier.
inline std::string codeOf(const std::shared_ptr<Carrier> &carrier) {
  if (carrier == nullptr) return "none";
  return carrier->mobileCountryCode().value_or("?") + "-" + carrier->mobileNetworkCode().value_or("?");
}

/// A device on a bus of its own, with one telephony object.
class TelephonyTest : public testing::Test {
 protected:
  /// `intervals`: for a test in which the service fails.
  explicit TelephonyTest(ModemManagerClient::Intervals intervals = {}) : intervals_(intervals) {}

  /// Makes the telephony object, and has what it reports noted in `reported`.
  void begin() {
    networkInfo = telephony.makeTelephonyNetworkInfo();
    networkInfo->setSubscriberCellularProviderDidUpdateNotifier(
        [this](const std::shared_ptr<Carrier> &carrier) { reported.push_back(codeOf(carrier)); });
  }

  std::string code() const { return codeOf(networkInfo->subscriberCellularProvider()); }
  /// The technology as the messages have it, "LTE"; "none" when it is absent.
  std::string technology() const {
    const std::string prefix = "CTRadioAccessTechnology";
    const auto name = networkInfo->currentRadioAccessTechnology();
    if (!name) return "none";
    return name->rfind(prefix, 0) == 0 ? name->substr(prefix.size()) : "without prefix: " + *name;
  }
  bool codeBecomes(const std::string &expected) const {
    return thread.runUntil([&] { return code() == expected; });
  }
  bool technologyBecomes(const std::string &expected) const {
    return thread.runUntil([&] { return technology() == expected; });
  }

  /// Runs the loop for long enough that what must not happen would.
  void runForAWhile() const {
    bool over = false;
    g_timeout_add(
        1000,
        [](gpointer data) -> gboolean {
          *static_cast<bool *>(data) = true;
          return G_SOURCE_REMOVE;
        },
        &over);
    thread.runUntil([&over] { return over; });
  }

  PrivateBus bus;
  const MainThread thread;
  const std::shared_ptr<LinuxRunLoop> mainRunLoop = LinuxRunLoop::of(g_main_context_default());
  std::shared_ptr<SystemBus> systemBus = std::make_shared<SystemBus>(mainRunLoop, 1U);
  std::shared_ptr<TelephonyNetworkInfo> networkInfo;
  std::vector<std::string> reported;

 private:
  const ModemManagerClient::Intervals intervals_;

 protected:
  LinuxTelephony telephony{mainRunLoop, systemBus, intervals_};
};

}  // namespace kx
