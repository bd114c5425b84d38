// What every test answers for at its end: what the stand-ins complained of, and what is left over.

#import <Foundation/Foundation.h>

#include <gtest/gtest.h>

#include "tests/platform/apple/harness/Foundation.h"
#include "tests/platform/apple/harness/StandIn.h"
#include "tests/platform/apple/harness/StandInDevice.h"

extern "C" {
void *objc_autoreleasePoolPush();
void objc_autoreleasePoolPop(void *pool);
}

namespace {

using namespace kx;

/// A publisher lives as long as the process, and its timers with it: the one of its reports, those of an
/// early report after the start and after a return, and the one of the next login.
int timersOfThePublisher() {
  return standin::callsOf("+[NSURLSession sessionWithConfiguration:]") > 0 ? 4 : 0;
}

class AtTheEnd : public ::testing::Environment {
 public:
  void SetUp() override {
    standin::watchFoundation();
    pool_ = objc_autoreleasePoolPush();
  }

  void TearDown() override {
    objc_autoreleasePoolPop(pool_);
    // What is under way on other threads still comes to its end.
    standin::settleMainLoop();
    EXPECT_TRUE(standin::runMainLoopUntil([] { return standin::openInterfaceLists() == 0; }));
    EXPECT_TRUE(standin::runMainLoopUntil([] { return standin::aliveTimers() <= timersOfThePublisher(); }))
        << standin::aliveTimers() << " timers";
    EXPECT_TRUE(standin::runMainLoopUntil([] { return standin::heldRunLoops(false) == 0; }))
        << standin::heldRunLoops(false);
    // The platform's reference, where one has been made.
    EXPECT_LE(standin::heldRunLoops(true), 1);
    EXPECT_TRUE(standin::runMainLoopUntil([] { return standin::openSessions() == 0; }))
        << standin::openSessions() << " sessions";
    for (const std::string &complaint : standin::complaints()) ADD_FAILURE() << complaint;
  }

 private:
  void *pool_ = nullptr;
};

const ::testing::Environment *const atTheEnd = ::testing::AddGlobalTestEnvironment(new AtTheEnd);

}  // namespace
