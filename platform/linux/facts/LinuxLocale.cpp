#include "platform/linux/facts/LinuxLocale.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <optional>
#include <sstream>
#include <string_view>

namespace kx {

namespace {

/// Modifiers that tell a language from the one without them; the others ("@euro") do not.
struct Modifier {
  std::string_view name;
  const char *script;   ///< ISO 15924
  const char *variant;  ///< registered variant subtag
};
constexpr std::array<Modifier, 5> modifiers{{{"latin", "Latn", ""},
                                             {"cyrillic", "Cyrl", ""},
                                             {"devanagari", "Deva", ""},
                                             {"iqtelif", "Latn", ""},
                                             {"valencia", "", "valencia"}}};

bool allOf(std::string_view text, gboolean (*isOfKind)(gchar)) {
  return std::all_of(text.begin(), text.end(), [isOfKind](char c) { return isOfKind(c) != FALSE; });
}
gboolean isLetter(gchar character) {
  return g_ascii_isalpha(character);
}
gboolean isDigit(gchar character) {
  return g_ascii_isdigit(character);
}

bool isLanguage(std::string_view text) {
  return (text.size() == 2 || text.size() == 3) && allOf(text, &isLetter);
}
bool isTerritory(std::string_view text) {
  return (text.size() == 2 && allOf(text, &isLetter)) || (text.size() == 3 && allOf(text, &isDigit));
}

std::string withEachCharacter(std::string_view text, gchar (*converted)(gchar)) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), converted);
  return result;
}

/// What stands in `text` before the first `separator`; that and the separator are taken off it.
std::string_view takeUntil(char separator, std::string_view &text) {
  const std::string_view part = text.substr(0, text.find(separator));
  text.remove_prefix(std::min(part.size() + 1, text.size()));
  return part;
}

/// Whether that is the locale without a language, in whatever encoding.
bool isNeutral(std::string_view locale) {
  const std::string_view name = takeUntil('.', locale);
  return name == "C" || name == "POSIX";
}

/// The BCP 47 identifier of a POSIX locale name, language[_TERRITORY][.encoding][@modifier]; absent for the
/// neutral locale and for what is no such name.
std::optional<std::string> languageIdentifier(std::string_view locale) {
  std::string_view name = takeUntil('@', locale);
  const std::string_view modifierName = locale;
  name = takeUntil('.', name);
  const std::string_view language = takeUntil('_', name);
  const std::string_view territory = name;
  if (!isLanguage(language) || !(territory.empty() || isTerritory(territory))) return std::nullopt;

  std::string identifier = withEachCharacter(language, &g_ascii_tolower);
  const auto modifier =
      std::find_if(modifiers.begin(), modifiers.end(),
                   [modifierName](const Modifier &known) { return known.name == modifierName; });
  const auto append = [&identifier](const std::string &subtag) {
    if (!subtag.empty()) identifier += "-" + subtag;
  };
  if (modifier != modifiers.end()) append(modifier->script);
  append(withEachCharacter(territory, &g_ascii_toupper));
  if (modifier != modifiers.end()) append(modifier->variant);
  return identifier;
}

}  // namespace

std::vector<std::string> LinuxLocale::preferredLanguages() {
  std::optional<std::string> locale;
  for (const char *const variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    if (!locale) locale = environment_.value(variable);
  }
  if (!locale || isNeutral(*locale)) return {};

  std::vector<std::string> languages;
  const auto add = [&languages](const std::string &name) {
    const auto identifier = languageIdentifier(name);
    if (identifier && std::find(languages.begin(), languages.end(), *identifier) == languages.end()) {
      languages.push_back(*identifier);
    }
  };
  std::istringstream wanted(environment_.value("LANGUAGE").value_or(""));
  for (std::string name; std::getline(wanted, name, ':');) add(name);
  add(*locale);
  return languages;
}

}  // namespace kx
