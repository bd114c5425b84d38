#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/collector/NextSteps.h"

namespace kx::collector {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

TEST(NextStepsTest, AHostIsToldTheAddressAndTheFile) {
  EXPECT_THAT(hostLines({"192.0.2.7", 8443, "/state/a \"b\"/ca.pem", true}),
              ElementsAre("options.certificateAuthorityFile = \"/state/a \\\"b\\\"/ca.pem\";",
                          "kx::LinuxHost::setOptions(options);",
                          "kx::KXPublisher::sharedInstanceWithApiToken(\"any text\", \"192.0.2.7:8443\");"));
}

TEST(NextStepsTest, ACertificateOfOnesOwnNeedsNoFile) {
  EXPECT_THAT(hostLines({"::1", 8443, "/mine.pem", false}),
              ElementsAre("kx::KXPublisher::sharedInstanceWithApiToken(\"any text\", \"[::1]:8443\");"));
}

TEST(NextStepsTest, TheLinesArePrintedToBeCopied) {
  const ListeningAddress where{"127.0.0.1", 8443, "/state/ca.pem", true};
  for (const std::string &line : hostLines(where))
    EXPECT_THAT(nextStepsText(where), HasSubstr("\n    " + line + "\n"));
  EXPECT_THAT(nextStepsText(where), Not(HasSubstr("also on")));
}

TEST(NextStepsTest, TheOtherAddressesArePrinted) {
  const ListeningAddress where = [] {
    ListeningAddress every{"192.0.2.7", 8443, "", true};
    every.otherAddresses = {"2001:db8::7", "127.0.0.1"};
    return every;
  }();
  EXPECT_THAT(nextStepsText(where),
              HasSubstr("also on https://[2001:db8::7]:8443, https://127.0.0.1:8443\n"));
}

TEST(NextStepsTest, APhoneIsToldWhereToFetchTheCertificate) {
  const ListeningAddress where{"192.0.2.7", 8443, "", true};
  EXPECT_EQ(downloadURL(where), "https://192.0.2.7:8443/ca");
  const std::string text = downloadSteps(where, "AB:CD", "the code\n");
  EXPECT_THAT(text, HasSubstr("https://192.0.2.7:8443/ca\n"));
  EXPECT_THAT(text, HasSubstr("\n    AB:CD\n"));
  EXPECT_THAT(text, HasSubstr("\nthe code\n"));
}

}  // namespace
}  // namespace kx::collector
