#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "platform/linux/facts/LinuxLocale.h"

namespace kx {
namespace {

using Languages = std::vector<std::string>;

Languages languagesIn(std::map<std::string, std::string> variables) {
  return LinuxLocale(Environment(std::move(variables))).preferredLanguages();
}

TEST(LinuxLocale, TurnsLocaleNamesIntoLanguageIdentifiers) {
  const std::map<std::string, Languages> identifiers{
      {"de", {"de"}},
      {"de_CH", {"de-CH"}},
      {"de_CH.UTF-8", {"de-CH"}},
      {"de_CH.UTF-8@euro", {"de-CH"}},
      {"de_CH@euro", {"de-CH"}},
      {"sr_RS@latin", {"sr-Latn-RS"}},
      {"sr_RS.UTF-8@latin", {"sr-Latn-RS"}},
      {"sr@latin", {"sr-Latn"}},
      {"be_BY@cyrillic", {"be-Cyrl-BY"}},
      {"sd_IN@devanagari", {"sd-Deva-IN"}},
      {"tt_RU@iqtelif", {"tt-Latn-RU"}},
      {"ca_ES@valencia", {"ca-ES-valencia"}},
      {"DE_ch", {"de-CH"}},
      {"ckb_IQ", {"ckb-IQ"}},
      {"es_419", {"es-419"}},
      {"C", {}},
      {"C.UTF-8", {}},
      {"POSIX", {}},
      {"english", {}},
      {"e", {}},
      {"de_", {"de"}},
      {"de_SWISS", {}},
      {"de_C1", {}},
      {"../../etc/passwd", {}},
      {"d\xe9_FR", {}},
      {"_CH", {}},
      {".UTF-8", {}},
      {"@euro", {}},
  };
  for (const auto &[locale, languages] : identifiers) {
    EXPECT_EQ(languagesIn({{"LANG", locale}}), languages) << locale;
  }
}

TEST(LinuxLocale, ListsTheWantedLanguagesThenTheLocales) {
  EXPECT_EQ(languagesIn({{"LANGUAGE", "de_AT:de:en_GB"}, {"LANG", "fr_FR.UTF-8"}}),
            (Languages{"de-AT", "de", "en-GB", "fr-FR"}));
}

TEST(LinuxLocale, ListsEachLanguageOnce) {
  EXPECT_EQ(languagesIn({{"LANGUAGE", "de_DE:en:de_DE.UTF-8"}, {"LANG", "en"}}), (Languages{"de-DE", "en"}));
}

TEST(LinuxLocale, LeavesOutWhatIsNoLanguage) {
  EXPECT_EQ(languagesIn({{"LANGUAGE", ":C:de::nonsense_:POSIX:"}, {"LANG", "en_US.UTF-8"}}),
            (Languages{"de", "en-US"}));
}

TEST(LinuxLocale, FollowsTheVariablesPrecedence) {
  EXPECT_EQ(languagesIn({{"LC_ALL", "de_DE"}, {"LC_MESSAGES", "fr_FR"}, {"LANG", "it_IT"}}),
            (Languages{"de-DE"}));
  EXPECT_EQ(languagesIn({{"LC_MESSAGES", "fr_FR"}, {"LANG", "it_IT"}}), (Languages{"fr-FR"}));
  EXPECT_EQ(languagesIn({{"LC_ALL", ""}, {"LC_MESSAGES", ""}, {"LANG", "it_IT"}}), (Languages{"it-IT"}));
}

TEST(LinuxLocale, WantsNoLanguageInTheNeutralLocale) {
  EXPECT_EQ(languagesIn({{"LANGUAGE", "de"}, {"LANG", "C"}}), Languages());
  EXPECT_EQ(languagesIn({{"LANGUAGE", "de"}, {"LANG", "C.UTF-8"}}), Languages());
  EXPECT_EQ(languagesIn({{"LANGUAGE", "de"}, {"LC_ALL", "POSIX"}, {"LANG", "de_DE"}}), Languages());
  EXPECT_EQ(languagesIn({{"LANGUAGE", "de"}}), Languages());  // without any setting it is the locale
  EXPECT_EQ(languagesIn({}), Languages());
}

TEST(LinuxLocale, KeepsToTheEnvironmentInWhichItWasMade) {
  setenv("LANGUAGE", "de", 1);
  setenv("LC_ALL", "en_US.UTF-8", 1);
  LinuxLocale locale;
  setenv("LANGUAGE", "fr", 1);
  EXPECT_EQ(locale.preferredLanguages(), (Languages{"de", "en-US"}));
}

}  // namespace
}  // namespace kx
