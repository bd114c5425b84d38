#include <string>
#include <vector>

#include "KXPublisher/diagnostics/KXLog.h"
#include "KXPublisher/diagnostics/KXLogError.h"
#include "tests/support/SimulatedTest.h"

namespace kx {
namespace {

using KXLogErrorTest = SimulatedTest;

TEST_F(KXLogErrorTest, PrintsOneLineAtLevelError) {
  KXLogError("Error sending data. HTTP status: %lu", {500});
  EXPECT_EQ(device.consoleService.lines,
            (std::vector<std::string>{"[KX Error] Error sending data. HTTP status: 500"}));
}

TEST_F(KXLogErrorTest, DoesNotReadPlaceholdersInTheFinishedText) {
  KXLogError("%@", {"100 %@ %s"});
  EXPECT_EQ(device.consoleService.lines, (std::vector<std::string>{"[KX Error] 100 %@ %s"}));
}

TEST_F(KXLogErrorTest, BuildsItsTextEvenWhenItIsNotPrinted) {
  class Counting : public Object {
   public:
    std::string description() const override {
      ++described;
      return "counted";
    }
    mutable int described = 0;
  };
  const Counting counting;
  KXLog::sharedInstance()->setLogLevel(KXLogLevelOff);
  KXLogError("%@", {&counting});
  EXPECT_EQ(counting.described, 1);
  EXPECT_TRUE(device.consoleService.lines.empty());
}

}  // namespace
}  // namespace kx
