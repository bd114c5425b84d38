#include "KXPublisher/providers/KXAsn.h"

#include "KXPublisher/platform/Bundle.h"
#include "KXPublisher/platform/Platform.h"
#include "platform/foundation/SingleInstance.h"
#include "providers/Facts.h"

namespace kx {

using namespace constants;

std::shared_ptr<KXAsn> KXAsn::sharedInstance() {
  return singleInstance([] { return make<KXAsn>(); });
}

std::shared_ptr<MutableDictionary> KXAsn::computeData() {
  Dictionary facts;
  BundleService &bundles = Platform::current().bundles();
  if (const auto mainBundle = bundles.mainBundle()) {
    const auto identifier = mainBundle->bundleIdentifier();
    // By way of the identifier on purpose: without one there is no executable's name either.
    const auto bundle = bundles.bundleWithIdentifier(identifier);
    const auto executable =
        bundle == nullptr ? std::nullopt : bundle->objectForInfoDictionaryKey("CFBundleExecutable");
    setFact(facts, dataKeyAsnBundleId, identifier);
    if (executable && *executable != Value("")) facts.set(dataKeyAsnName, *executable);
  }
  return std::make_shared<MutableDictionary>(std::move(facts));
}

}  // namespace kx
