#include <string>
#include <vector>

#include "KXPublisher/diagnostics/KXLog.h"
#include "KXPublisher/diagnostics/KXLogError.h"
#include "KXPublisher/platform/foundation/Exceptions.h"
#include "tests/support/SimulatedTest.h"

namespace kx {
namespace {

using Lines = std::vector<std::string>;
using KXLogTest = SimulatedTest;

TEST_F(KXLogTest, StartsAtLevelError) {
  EXPECT_EQ(KXLog::sharedInstance()->logLevel(), KXLogLevelError);
}

TEST_F(KXLogTest, TakesItsStartingLevelFromTheFirstCallInTheProcess) {
  EXPECT_EQ(KXLog::sharedInstanceWithLogLevel(4)->logLevel(), 4);
  KXLogError("first");
  EXPECT_EQ(KXLog::sharedInstance()->logLevel(), 4);
}

TEST_F(KXLogTest, KeepsItsLevelWhenALaterCallNamesAnother) {
  KXLogError("first");
  const auto log = KXLog::sharedInstanceWithLogLevel(4);
  EXPECT_EQ(log, KXLog::sharedInstance());
  EXPECT_EQ(log->logLevel(), KXLogLevelError);
  log->setLogLevel(3);
  EXPECT_EQ(KXLog::sharedInstance()->logLevel(), 3);
}

TEST_F(KXLogTest, PrintsEachLevelUnderItsName) {
  const auto log = KXLog::sharedInstanceWithLogLevel(4);
  for (KXLogLevel level = 0; level <= 4; ++level) log->log(level, "message");
  EXPECT_EQ(device.consoleService.lines, (Lines{"[KX Off] message", "[KX Error] message", "[KX Warn] message",
                                                "[KX Info] message", "[KX Debug] message"}));
}

TEST_F(KXLogTest, PrintsNothingAboveItsLevel) {
  const auto log = KXLog::sharedInstanceWithLogLevel(2);
  log->log(3, "info");
  log->log(4, "debug");
  EXPECT_TRUE(device.consoleService.lines.empty());
  log->log(2, "warn");
  EXPECT_EQ(device.consoleService.lines.size(), 1u);
}

TEST_F(KXLogTest, PrintsNoErrorAtLevelOff) {
  KXLog::sharedInstance()->setLogLevel(0);
  KXLogError("unheard");
  EXPECT_TRUE(device.consoleService.lines.empty());
}

TEST_F(KXLogTest, PrintsAMessageAtLevelOffEvenAtLevelOff) {
  KXLog::sharedInstance()->setLogLevel(0);
  KXLog::sharedInstance()->log(0, "heard");
  EXPECT_EQ(device.consoleService.lines, (Lines{"[KX Off] heard"}));
}

TEST_F(KXLogTest, RaisesForALevelWithoutANameThatPassesTheFilter) {
  const auto log = KXLog::sharedInstance();
  EXPECT_THROW(log->log(-1, "below"), RangeException);
  log->setLogLevel(10);
  EXPECT_THROW(log->log(5, "above"), RangeException);
  log->setLogLevel(4);
  EXPECT_NO_THROW(log->log(5, "filtered"));
  EXPECT_TRUE(device.consoleService.lines.empty());
}

TEST_F(KXLogTest, HoldsLevelsOfSixtyFourBits) {
  const auto log = KXLog::sharedInstance();
  log->setLogLevel(-(KXLogLevel{1} << 40));
  EXPECT_NO_THROW(log->log(-1, "filtered"));
  EXPECT_EQ(log->logLevel(), -(KXLogLevel{1} << 40));
}

}  // namespace
}  // namespace kx
