#include "KXPublisher/diagnostics/KXLog.h"
#include "bindings/objective-c/ObjectiveCData.h"
#include "bindings/objective-c/ObjectiveCFace.h"
#include "bindings/objective-c/ObjectiveCPublisher.h"
#include "bindings/objective-c/ObjectiveCTimers.h"
#include "bindings/objective-c/ObjectiveCTransport.h"
#include "platform/apple/AppleCallbackBoundary.h"
#include "platform/apple/AppleText.h"
#include "platform/apple/AppleValue.h"

const char kxPublisherClasses = 0;

// Like the rest of the publisher's face nothing here raises.

@implementation KXPublisher (Classes)

- (instancetype)initWithApiToken:(NSString *)apiToken hostname:(NSString *)hostname {
  std::shared_ptr<kx::KXPublisher> publisher;
  kx::runAtBoundary(
      [&] { publisher = kx::KXPublisher::initWithApiToken(kx::textOf(apiToken), kx::textOf(hostname)); });
  return [self initWithKXPublisherObject:publisher];
}

- (NSArray<KXData *> *)dataProviders {
  NSMutableArray<KXData *> *const faces = [NSMutableArray array];
  if (const auto &publisher = [self kxPublisherObject]) {
    for (const auto &provider : publisher->dataProviders()) {
      KXData *const face = kx::faceOfProvider(provider);
      if (face != nil) [faces addObject:face];
    }
  }
  return faces;
}

- (void)setDataProviders:(NSArray<KXData *> *)dataProviders {
  std::vector<std::shared_ptr<kx::KXData>> providers;
  for (KXData *face in dataProviders) {
    if (const auto &provider = [face kxPublisherProvider]) providers.push_back(provider);
  }
  if (const auto &publisher = [self kxPublisherObject]) publisher->setDataProviders(std::move(providers));
}

- (KXLogger *)kxLogger {
  const auto &publisher = [self kxPublisherObject];
  return publisher == nullptr ? nil : kx::faceOf<KXLogger>(publisher->kxLogger());
}

- (void)setKxLogger:(KXLogger *)kxLogger {
  const auto &publisher = [self kxPublisherObject];
  if (publisher != nullptr) publisher->setKxLogger(kxLogger == nil ? nullptr : [kxLogger kxPublisherObject]);
}

- (NSTimer *)logTimer {
  const auto &publisher = [self kxPublisherObject];
  return publisher == nullptr ? nil : kx::systemTimerOf(publisher->logTimer());
}

- (void)setLogTimer:(NSTimer *)logTimer {
  if (const auto &publisher = [self kxPublisherObject]) publisher->setLogTimer(kx::timerOf(logTimer));
}

- (KXLog *)kxLog {
  const auto &publisher = [self kxPublisherObject];
  return publisher == nullptr || publisher->kxLog() == nullptr ? nil : [KXLog sharedInstance];
}

- (void)setKxLog:(KXLog *)kxLog {
  if (const auto &publisher = [self kxPublisherObject]) {
    publisher->setKxLog(kxLog == nil ? nullptr : kx::KXLog::sharedInstance());
  }
}

- (KXFacts *)data {
  KXFacts *facts = nil;
  kx::runAtBoundary([&] {
    if (const auto &publisher = [self kxPublisherObject]) facts = kx::factsOf(publisher->data());
  });
  return facts != nil ? facts : [NSDictionary dictionary];
}

- (void)logData:(NSTimer *)__attribute__((unused))sender {
  [self logDataAsync:YES];
}

- (void)logDataAsync:(BOOL)async {
  kx::runAtBoundary([&] {
    if (const auto &publisher = [self kxPublisherObject]) publisher->logDataAsync(async);
  });
}

@end
