#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/bus/SystemBus.h"
#include "platform/linux/network/LinuxReachability.h"
#include "tests/platform/linux/MainLoop.h"
#include "tests/platform/linux/network/NetworkNamespace.h"
#include "tests/support/ChildProcess.h"

namespace kx {

constexpr NetworkReachabilityFlags flagsOfNone = 0;
constexpr NetworkReachabilityFlags flagsOfWifi = networkReachabilityFlagsReachable;
constexpr NetworkReachabilityFlags flagsOfCellular =
    networkReachabilityFlagsReachable | networkReachabilityFlagsIsWWAN;

/// Keeps what a callback is told.
class Reports : public Object {
 public:
  /// A callback whose context's `info` is such an object.
  static void add(NetworkReachabilityRef target, NetworkReachabilityFlags flags,
                  const std::weak_ptr<Object> &info) {
    const auto reports = std::static_pointer_cast<Reports>(info.lock());
    reports->targets.push_back(target);
    reports->flags.push_back(flags);
    if (reports->then) reports->then();
  }

  std::vector<NetworkReachabilityRef> targets;
  std::vector<NetworkReachabilityFlags> flags;
  std::function<void()> then;
};

/// A test in a network of its own, on whose main loop changes are reported.
class ReachabilityTest : public testing::Test {
 protected:
  void SetUp() override {
    if (const auto reason = NetworkNamespace::enter()) GTEST_SKIP() << *reason;
    makeService();
  }

  void makeService() {
    const auto loop = runLoops.linuxMainRunLoop();
    systemBus = std::make_shared<SystemBus>(loop, 1U);
    service = std::make_unique<LinuxReachability>(loop, systemBus);
    anywhere = service->createWithAddress(address(0, 0, 0, 0));
  }

  static SocketAddress address(std::uint8_t a, std::uint8_t b, std::uint8_t c, std::uint8_t d) {
    return {16, 2, 0, 0, a, b, c, d};
  }

  std::optional<NetworkReachabilityFlags> flags() { return service->getFlags(anywhere); }
  /// Whether they become these: the kernel takes its time to tell of a cable.
  bool become(NetworkReachabilityFlags expected) {
    return eventually([this, expected] { return flags() == expected; });
  }

  /// Has a handle's changes kept that the main loop reports, from how it is now on.
  std::shared_ptr<Reports> report(NetworkReachabilityRef target) {
    auto reports = std::make_shared<Reports>();
    EXPECT_TRUE(service->setCallback(target, &Reports::add, {0, reports}));
    EXPECT_TRUE(service->scheduleWithRunLoop(target, mainRunLoop, RunLoopMode::defaultMode));
    EXPECT_NE(service->getFlags(target), std::nullopt);
    return reports;
  }
  bool unschedule(NetworkReachabilityRef target) {
    return service->unscheduleFromRunLoop(target, mainRunLoop, RunLoopMode::defaultMode);
  }

  /// Runs the main loop until a change to these flags has been reported last.
  bool becomes(const std::shared_ptr<Reports> &reports, NetworkReachabilityFlags flags) {
    return thread.runUntil([&] { return !reports->flags.empty() && reports->flags.back() == flags; });
  }

  /// Runs the main loop until whatever has happened before has been reported to whom it may concern: until a
  /// handle of its own has noticed two changes one after the other.
  void settle() {
    if (if_nametoindex("witness") == 0) addLink("witness");
    ip("route replace unreachable 10.99.99.99/32");
    const auto witness = service->createWithAddress(address(10, 99, 99, 99));
    const auto reports = report(witness);
    ip("route replace 10.99.99.99/32 dev witness");
    EXPECT_TRUE(becomes(reports, flagsOfWifi));
    ip("route replace unreachable 10.99.99.99/32");
    EXPECT_TRUE(becomes(reports, flagsOfNone));
    EXPECT_TRUE(unschedule(witness));
  }

  static void ip(const std::string &commands) { NetworkNamespace::ip(commands); }
  static void addLink(const std::string &name) { NetworkNamespace::addLink(name); }

  const MainThread thread;
  LinuxRunLoopService runLoops;
  const std::shared_ptr<RunLoop> mainRunLoop = runLoops.mainRunLoop();
  std::shared_ptr<SystemBus> systemBus;  ///< the service's
  std::unique_ptr<LinuxReachability> service;
  NetworkReachabilityRef anywhere = nullptr;
};

}  // namespace kx
