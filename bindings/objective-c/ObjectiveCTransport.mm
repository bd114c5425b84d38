#include "bindings/objective-c/ObjectiveCTransport.h"

#include <utility>

#include "KXPublisher/transport/KXGzipUtility.h"
#include "bindings/objective-c/ObjectiveCFace.h"
#include "bindings/objective-c/ObjectiveCTimers.h"
#include "platform/apple/AppleText.h"
#include "platform/apple/AppleURLSession.h"
#include "platform/apple/AppleValue.h"

namespace {

NSString *stringOf(const std::optional<std::string> &text) {
  return text ? kx::stringOf(*text) : nil;
}

std::optional<kx::Data> dataOf(NSData *data) {
  if (data == nil) return std::nullopt;
  const auto *const bytes = static_cast<const std::uint8_t *>(data.bytes);
  return kx::Data(bytes, bytes + data.length);
}

/// A session of the host's, for which the library makes one task: the host gets it as it is, and is called
/// with what the system says.
class HostSession : public kx::URLSession {
 public:
  static std::shared_ptr<HostSession> make(NSURLSession *session, KXUploadCompletionHandler handler) {
    return session == nil ? nullptr : std::make_shared<HostSession>(session, handler);
  }

  HostSession(NSURLSession *session, KXUploadCompletionHandler handler)
      : session_(session), handler_(handler) {}

  std::shared_ptr<kx::URLSessionUploadTask> uploadTaskWithRequest(
      const kx::URLRequest &request, std::optional<kx::Data> fromData,
      CompletionHandler /*completionHandler*/) override {
    task_ = kx::systemUploadTask(session_, request, fromData, handler_);
    return nullptr;  // the host's to start
  }

  void finishTasksAndInvalidate() override { [session_ finishTasksAndInvalidate]; }

  NSURLSessionUploadTask *task() const { return task_; }

 private:
  NSURLSession *const session_;
  const KXUploadCompletionHandler handler_;
  NSURLSessionUploadTask *task_ = nil;
};

}  // namespace

@implementation KXNetworking {
  kx::Behind<kx::KXNetworking> _networking;
}

// The compiler does not let a host call it; who gets here by the runtime gets nothing.
- (instancetype)init {
  return nil;
}

+ (KXNetworking *)sharedInstanceWithApiToken:(NSString *)apiToken hostname:(NSString *)hostname {
  static KXNetworking *const sharedInstance = kx::faceOfInstance<KXNetworking>(
      kx::KXNetworking::sharedInstanceWithApiToken(kx::textOf(apiToken), kx::textOf(hostname)));
  return sharedInstance;
}

- (instancetype)initWithApiToken:(NSString *)apiToken hostname:(NSString *)hostname {
  const auto networking = kx::KXNetworking::initWithApiToken(kx::textOf(apiToken), kx::textOf(hostname));
  self = [self initWithKXPublisherObject:networking];
  if (self != nil) kx::becomeFaceOf(networking.get(), self);
  return self;
}

- (instancetype)initWithKXPublisherObject:(const std::shared_ptr<kx::KXNetworking> &)object {
  self = [super init];
  if (self != nil) _networking.set(object);
  return self;
}

- (const std::shared_ptr<kx::KXNetworking> &)kxPublisherObject {
  return _networking.get();
}

+ (NSURL *)urlForApiPath:(NSString *)path hostname:(NSString *)hostname {
  const auto url = kx::KXNetworking::urlForApiPath(kx::textOf(path), kx::textOf(hostname));
  NSString *const text = url ? kx::stringOf(url->absoluteString) : nil;
  return text == nil ? nil : [NSURL URLWithString:text];
}

+ (NSString *)jsonForObject:(id)object {
  const auto value = kx::valueOf(object);
  return value ? stringOf(kx::KXNetworking::jsonForObject(*value)) : nil;
}

+ (NSURLSessionUploadTask *)apiUploadTaskForPath:(NSString *)path
                                        hostname:(NSString *)hostname
                                          params:(NSDictionary<NSString *, id> *)params
                                         session:(NSURLSession *)session
                               completionHandler:(KXUploadCompletionHandler)completionHandler {
  const auto hosts = HostSession::make(session, completionHandler);
  const auto document =
      params == nil ? std::nullopt : std::optional<kx::Dictionary>(kx::dictionaryOf(params));
  kx::KXNetworking::apiUploadTaskForPath(kx::textOf(path), kx::textOf(hostname), document, hosts, nullptr);
  return hosts == nullptr ? nil : hosts->task();
}

+ (NSURLSessionUploadTask *)feedUploadTaskForData:(NSData *)data
                                         hostname:(NSString *)hostname
                                      accessToken:(NSString *)accessToken
                                          session:(NSURLSession *)session
                                completionHandler:(KXUploadCompletionHandler)completionHandler {
  const auto hosts = HostSession::make(session, completionHandler);
  kx::KXNetworking::feedUploadTaskForData(dataOf(data), kx::textOf(hostname), kx::textOf(accessToken), hosts,
                                          nullptr);
  return hosts == nullptr ? nil : hosts->task();
}

+ (NSArray<NSString *> *)getIPAddresses {
  NSMutableArray<NSString *> *const addresses = [NSMutableArray array];
  for (const std::string &address : kx::KXNetworking::getIPAddresses()) {
    NSString *const text = kx::stringOf(address);
    if (text != nil) [addresses addObject:text];
  }
  return addresses;
}

- (void)getAccessTokenWithCompletionHandler:(void (^)(NSString *))completionHandler {
  _networking->getAccessTokenWithCompletionHandler(
      [completionHandler](std::optional<std::string> token) { completionHandler(stringOf(token)); });
}

- (void)updateAccessToken:(id)__attribute__((unused))sender {
  _networking->updateAccessToken(nullptr);
}

- (void)updateLastAccessTokenRequestTimeInterval {
  _networking->updateLastAccessTokenRequestTimeInterval();
}

- (void)sendData:(KXFacts *)message {
  _networking->sendData(kx::dictionaryOf(message));
}

- (NSString *)apiToken {
  return stringOf(_networking->apiToken());
}

- (void)setApiToken:(NSString *)apiToken {
  _networking->setApiToken(kx::textOf(apiToken));
}

- (NSString *)hostname {
  return stringOf(_networking->hostname());
}

- (void)setHostname:(NSString *)hostname {
  _networking->setHostname(kx::textOf(hostname));
}

- (NSString *)accessToken {
  return stringOf(_networking->accessToken());
}

- (void)setAccessToken:(NSString *)accessToken {
  _networking->setAccessToken(kx::textOf(accessToken));
}

- (NSTimeInterval)accessTokenLastUpdated {
  return _networking->accessTokenLastUpdated();
}

- (void)setAccessTokenLastUpdated:(NSTimeInterval)accessTokenLastUpdated {
  _networking->setAccessTokenLastUpdated(accessTokenLastUpdated);
}

- (NSTimeInterval)lastAccessTokenRequestTimeInterval {
  return _networking->lastAccessTokenRequestTimeInterval();
}

- (void)setLastAccessTokenRequestTimeInterval:(NSTimeInterval)lastAccessTokenRequestTimeInterval {
  _networking->setLastAccessTokenRequestTimeInterval(lastAccessTokenRequestTimeInterval);
}

- (NSTimer *)accessTokenRequestTimer {
  return kx::systemTimerOf(_networking->accessTokenRequestTimer());
}

- (void)setAccessTokenRequestTimer:(NSTimer *)accessTokenRequestTimer {
  _networking->setAccessTokenRequestTimer(kx::timerOf(accessTokenRequestTimer));
}

- (BOOL)accessTokenWaitingResponse {
  return _networking->accessTokenWaitingResponse();
}

- (void)setAccessTokenWaitingResponse:(BOOL)accessTokenWaitingResponse {
  _networking->setAccessTokenWaitingResponse(accessTokenWaitingResponse);
}

- (NSString *)description {
  return kx::stringOf(_networking->description());
}

@end

@implementation KXGzipUtility

+ (NSData *)gzipData:(NSData *)data {
  const auto compressed = kx::KXGzipUtility::gzipData(dataOf(data));
  return compressed ? [NSData dataWithBytes:compressed->data() length:compressed->size()] : nil;
}

@end

@implementation KXLogger {
  kx::Behind<kx::KXLogger> _logger;
}

- (instancetype)init {
  return nil;
}

+ (KXLogger *)sharedInstanceWithApiToken:(NSString *)apiToken hostname:(NSString *)hostname {
  static KXLogger *const sharedInstance = kx::faceOfInstance<KXLogger>(
      kx::KXLogger::sharedInstanceWithApiToken(kx::textOf(apiToken), kx::textOf(hostname)));
  return sharedInstance;
}

- (instancetype)initWithApiToken:(NSString *)apiToken hostname:(NSString *)hostname {
  const auto logger = kx::KXLogger::initWithApiToken(kx::textOf(apiToken), kx::textOf(hostname));
  self = [self initWithKXPublisherObject:logger];
  if (self != nil) kx::becomeFaceOf(logger.get(), self);
  return self;
}

- (instancetype)initWithKXPublisherObject:(const std::shared_ptr<kx::KXLogger> &)object {
  self = [super init];
  if (self != nil) _logger.set(object);
  return self;
}

- (const std::shared_ptr<kx::KXLogger> &)kxPublisherObject {
  return _logger.get();
}

- (void)logData:(KXFacts *)data async:(BOOL)async {
  _logger->logData(kx::dictionaryOf(data), async);
}

- (KXNetworking *)kxNetworking {
  return kx::faceOf<KXNetworking>(_logger->kxNetworking());
}

- (void)setKxNetworking:(KXNetworking *)kxNetworking {
  _logger->setKxNetworking(kxNetworking == nil ? nullptr : [kxNetworking kxPublisherObject]);
}

- (NSString *)description {
  return kx::stringOf(_logger->description());
}

@end
