// Why nothing arrives, where it is for the Linux platform to say.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <KXPublisher/KXPublisher.hpp>

#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/platform/linux/LinuxHost.h"
#include "tests/platform/linux/threads/VirtualTime.h"

namespace kx {
namespace {

using testing::HasSubstr;
using testing::Not;
using MainLoop = KXDiagnosis::MainLoop;

TEST(LinuxDiagnosis, IsNoUseOfTheLibraryThatMakesOptionsLate) {
  static_cast<void>(KXPublisher::diagnosis().text());
  EXPECT_TRUE(LinuxHost::setOptions({}));
  Platform::current();
  EXPECT_FALSE(KXPublisher::diagnosis().optionsCameTooLate);
  EXPECT_THAT(KXPublisher::diagnosis().text(), Not(HasSubstr("options")));
}

TEST(LinuxDiagnosis, TellsThatTheOptionsCameTooLate) {
  KXPublisher::sharedInstanceWithApiToken("token", nullptr);
  LinuxHostOptions options;
  options.advertisingIdentifier = "6D92078A-8246-4BA4-AE5B-76104861E7DC";
  EXPECT_FALSE(LinuxHost::setOptions(options));
  EXPECT_TRUE(KXPublisher::diagnosis().optionsCameTooLate);
  EXPECT_THAT(KXPublisher::diagnosis().text(), HasSubstr("Host's options: came too late\n"));
  EXPECT_THAT(KXPublisher::diagnosis().text(),
              HasSubstr("- The host's options came after the library had been used"));
}

TEST(LinuxDiagnosis, TellsThatTheMainLoopDoesNotRun) {
  VirtualTime time;
  // Without a host name: no request leaves this process.
  KXPublisher::sharedInstanceWithApiToken("token", nullptr);
  EXPECT_EQ(KXPublisher::diagnosis().mainLoop, MainLoop::unknown);
  time.shiftWallClock(16);
  EXPECT_EQ(KXPublisher::diagnosis().mainLoop, MainLoop::hasNotRun);
  EXPECT_THAT(KXPublisher::diagnosis().text(), HasSubstr("- The main loop has not served the library"));
  time.run(6);
  const KXDiagnosis now = KXPublisher::diagnosis();
  EXPECT_EQ(now.mainLoop, MainLoop::hasRun);
  EXPECT_EQ(now.reportsMade, 1u);
  EXPECT_EQ(now.identifier, KXDiagnosis::Identifier::absent);
}

}  // namespace
}  // namespace kx
