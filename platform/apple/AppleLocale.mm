#include "platform/apple/AppleLocale.h"

#import <Foundation/Foundation.h>

#include <utility>

#include "platform/apple/AppleText.h"

namespace kx {

std::vector<std::string> AppleLocale::preferredLanguages() {
  std::vector<std::string> languages;
  for (NSString *language in [NSLocale preferredLanguages]) {
    if (auto identifier = textOf(language)) languages.push_back(*std::move(identifier));
  }
  return languages;
}

}  // namespace kx
