#include "bindings/objective-c/ObjectiveCData.h"

#include "KXPublisher/providers/KXAsn.h"
#include "KXPublisher/providers/KXCarrier.h"
#include "KXPublisher/providers/KXConnection.h"
#include "KXPublisher/providers/KXDevice.h"
#include "KXPublisher/providers/KXLocation.h"
#include "bindings/objective-c/ObjectiveCFace.h"
#include "platform/apple/AppleObject.h"
#include "platform/apple/AppleText.h"
#include "platform/apple/AppleValue.h"

@interface KXData () <KXPublisherStandIn>
- (void)kxPublisherSetProvider:(const std::shared_ptr<kx::KXData> &)provider;
@end

namespace kx {

namespace {

/// Stands in the library for a provider that the host has written. The two hold each other: like every
/// provider, which its observations hold, it lives as long as the process.
class HostProvider : public KXData {
 public:
  static void makeFor(::KXData *hosts) { make<HostProvider>(hosts); }

  bool needsMonitoring() const override { return [[hosts_ class] needsMonitoring]; }
  double monitoringTimeInterval() const override { return [[hosts_ class] monitoringTimeInterval]; }
  bool hasPermissions() override { return [hosts_ hasPermissions]; }
  std::shared_ptr<MutableDictionary> computeData() override {
    return std::make_shared<MutableDictionary>(dictionaryOf([hosts_ computeData]));
  }
  std::string description() const override { return textOf(hosts_.description).value_or(std::string()); }

  ::KXData *hosts() const { return hosts_; }

 protected:
  void instanceDidStartInit() override {
    [hosts_ kxPublisherSetProvider:strong(*this)];
    [hosts_ instanceDidStartInit];
  }

 private:
  friend class KXData;
  explicit HostProvider(::KXData *hosts) : hosts_(hosts) {}

  ::KXData *const hosts_;
};

id standInForProvider(const std::shared_ptr<Object> &object) {
  return faceOfProvider(std::dynamic_pointer_cast<KXData>(object));
}

/// The face of `provider` if that is of one of the library's classes.
template <class Face, class Provider>
Face *faceIfOf(const std::shared_ptr<KXData> &provider) {
  return faceOf<Face>(std::dynamic_pointer_cast<Provider>(provider));
}

}  // namespace

::KXData *faceOfProvider(const std::shared_ptr<KXData> &provider) {
  if (const auto *hosts = dynamic_cast<const HostProvider *>(provider.get())) return hosts->hosts();
  if (::KXData *const face = faceIfOf<::KXDevice, KXDevice>(provider)) return face;
  if (::KXData *const face = faceIfOf<::KXCarrier, KXCarrier>(provider)) return face;
  if (::KXData *const face = faceIfOf<::KXLocation, KXLocation>(provider)) return face;
  if (::KXData *const face = faceIfOf<::KXConnection, KXConnection>(provider)) return face;
  if (::KXData *const face = faceIfOf<::KXAsn, KXAsn>(provider)) return face;
  return faceOf<::KXData>(provider);
}

}  // namespace kx

@implementation KXData {
  kx::Behind<kx::KXData> _kxProvider;
  BOOL _kxIsHosts;  ///< derived from by the host: what it does not override is the base's
}

+ (void)load {
  kx::setStandInMaker(&kx::standInForProvider);
}

+ (KXData *)sharedInstance {
  return kx::raising([]() -> KXData * { return kx::faceOfProvider(kx::KXData::sharedInstance()); });
}

+ (KXData *)sharedInstanceWithMonitoring:(BOOL)monitoring {
  return kx::raising([monitoring]() -> KXData * {
    return kx::faceOfProvider(kx::KXData::sharedInstanceWithMonitoring(monitoring));
  });
}

+ (BOOL)needsMonitoring {
  [NSException raise:NSInternalInconsistencyException
              format:@"You must override %@ in a subclass", NSStringFromSelector(_cmd)];
  return NO;
}

+ (NSTimeInterval)monitoringTimeInterval {
  if ([self needsMonitoring]) {
    [NSException raise:NSInternalInconsistencyException
                format:@"You must override %@ in a subclass", NSStringFromSelector(_cmd)];
  }
  [self doesNotRecognizeSelector:_cmd];
  return 0;
}

- (instancetype)init {
  self = [super init];
  if (self != nil) {
    _kxIsHosts = YES;
    kx::HostProvider::makeFor(self);
  }
  return self;
}

- (instancetype)initWithKXPublisherObject:(const std::shared_ptr<kx::KXData> &)object {
  self = [super init];
  if (self != nil) _kxProvider.set(object);
  return self;
}

- (void)kxPublisherSetProvider:(const std::shared_ptr<kx::KXData> &)provider {
  _kxProvider.set(provider);
}

- (const std::shared_ptr<kx::KXData> &)kxPublisherProvider {
  return _kxProvider.get();
}

- (std::shared_ptr<kx::Object>)kxPublisherObject {
  return _kxProvider.get();
}

- (BOOL)hasPermissions {
  return kx::raising([self] {
    return self->_kxIsHosts ? self->_kxProvider->kx::KXData::hasPermissions()
                            : self->_kxProvider->hasPermissions();
  });
}

- (KXFacts *)computeData {
  KXFacts *const facts = kx::factsOf(kx::raising([self] {
    return self->_kxIsHosts ? self->_kxProvider->kx::KXData::computeData() : self->_kxProvider->computeData();
  }));
  return facts != nil ? facts : [NSDictionary dictionary];
}

- (void)instanceDidStartInit {
}

- (KXFacts *)data {
  return kx::factsOf(_kxProvider->data());
}

- (void)updateData {
  _kxProvider->updateData();
}

- (void)updateData:(KXFacts *)data {
  _kxProvider->updateData(std::make_shared<kx::MutableDictionary>(kx::dictionaryOf(data)));
}

- (void)resetData {
  _kxProvider->resetData();
}

- (BOOL)isMonitoring {
  return kx::raising([self] { return self->_kxProvider->isMonitoring(); });
}

- (void)setMonitoring:(BOOL)monitoring {
  kx::raising([self, monitoring] { self->_kxProvider->setMonitoring(monitoring); });
}

- (void)updateMonitoring {
  kx::raising([self] { self->_kxProvider->updateMonitoring(); });
}

- (void)updateDataWithTimer:(NSTimer *)__attribute__((unused))timer {
  _kxProvider->updateDataWithTimer(nullptr);
}

- (KXScheduler *)sharedScheduler {
  return _kxProvider->sharedScheduler() == nullptr ? nil : [KXScheduler sharedInstance];
}

- (NSString *)description {
  return _kxIsHosts ? [super description] : kx::stringOf(_kxProvider->description());
}

@end
