#include "tools/collector/NATSConnection.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "tools/collector/CertificateStore.h"

namespace kx::collector {

namespace {

constexpr std::int64_t connectTimeout = 2000;  // milliseconds, as all of these
constexpr std::int64_t requestTimeout = 2000;  // of questions about the stream
constexpr std::int64_t writeDeadline = 2000;   // of a server that takes nothing
constexpr std::int64_t timeBetweenPings = 2000;
constexpr int pingsWithoutAnswer = 2;
constexpr std::int64_t timeBetweenAttempts = 250;  // to connect again
constexpr std::int64_t mostPending = 1 << 20;      // more than ever wait; else the library would hold us up
constexpr std::int64_t nanosecondsOfDuplicates = 600'000'000'000;

/// Who listens, by the numbers that the library's callbacks carry: one may come when nobody is there any
/// more.
class Listeners {
 public:
  static Listeners &shared() {
    static Listeners listeners;
    return listeners;
  }

  std::intptr_t add(const std::weak_ptr<NATSListener> &listener) {
    const std::lock_guard<std::mutex> lock(mutex_);
    listeners_[++last_] = listener;
    return last_;
  }

  void remove(std::intptr_t number) {
    const std::lock_guard<std::mutex> lock(mutex_);
    listeners_.erase(number);
  }

  std::shared_ptr<NATSListener> find(const void *closure) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = listeners_.find(reinterpret_cast<std::intptr_t>(closure));
    return found == listeners_.end() ? nullptr : found->second.lock();
  }

 private:
  std::mutex mutex_;
  std::intptr_t last_ = 0;
  std::map<std::intptr_t, std::weak_ptr<NATSListener>> listeners_;
};

void changed(natsConnection * /*connection*/, void *closure) {
  if (const auto listener = Listeners::shared().find(closure)) listener->changed();
}

NATSListener::Reply replyOf(natsStatus status) {
  NATSListener::Reply reply;
  reply.problem = std::string("the stream cannot be reached: ") + natsStatus_GetText(status);
  reply.isPassing = status != NATS_MAX_PAYLOAD;
  if (status == NATS_TIMEOUT) reply.problem = "the stream has not acknowledged the message in time";
  if (status == NATS_MAX_PAYLOAD) {
    reply.status = 413;
    reply.problem = "the message is larger than the stream takes";
  }
  return reply;
}

NATSListener::Reply replyOf(const jsPubAckErr &error) {
  if (error.ErrCode == 0) return replyOf(error.Err);
  NATSListener::Reply reply;
  reply.problem =
      std::string("the stream has refused the message: ") + (error.ErrText == nullptr ? "" : error.ErrText);
  reply.isPassing = error.ErrCode == JSClusterNotAvailErr || error.ErrCode == JSClusterNotLeaderErr;
  if (error.ErrCode == JSStreamMessageExceedsMaximumErr) reply.status = 413;
  return reply;
}

void acknowledged(jsCtx * /*context*/, natsMsg *message, jsPubAck *acknowledgement, jsPubAckErr *error,
                  void *closure) {
  NATSPointer<natsMsg> own(message);
  const auto listener = Listeners::shared().find(closure);
  if (listener == nullptr) return;
  NATSListener::Reply reply;
  if (acknowledgement != nullptr) {
    reply.isDuplicate = acknowledgement->Duplicate;
  } else if (error != nullptr) {
    reply = replyOf(*error);
  }
  listener->replied(std::move(own), reply);
}

void check(natsStatus status, const char *what) {
  if (status == NATS_OK) return;
  const char *const details = nats_GetLastError(nullptr);
  const bool hasDetails = details != nullptr && *details != '\0';
  throw std::runtime_error(std::string(what) + ": " + natsStatus_GetText(status) +
                           (hasDetails ? std::string(" (") + details + ")" : ""));
}

}  // namespace

NATSPointer<natsOptions> natsOptionsFrom(const NATSStreamSettings &settings) {
  natsOptions *raw = nullptr;
  check(natsOptions_Create(&raw), "Cannot make a connection");
  NATSPointer<natsOptions> options(raw);
  std::vector<const char *> servers;
  for (const std::string &server : settings.servers) servers.push_back(server.c_str());
  check(natsOptions_SetServers(raw, servers.data(), static_cast<int>(servers.size())),
        "--stream cannot be used");
  if (settings.credentials) {
    refuseToShare(*settings.credentials);
    check(natsOptions_SetUserCredentialsFromFiles(raw, settings.credentials->c_str(), nullptr),
          "--stream-credentials cannot be used");
  }
  if (settings.authority) {
    check(natsOptions_LoadCATrustedCertificates(raw, settings.authority->c_str()),
          "--stream-ca cannot be used");
  }
  check(natsOptions_SetName(raw, "kx-collector"), "Cannot name a connection");
  check(natsOptions_SetTimeout(raw, connectTimeout), "Cannot limit a connection");
  check(natsOptions_SetWriteDeadline(raw, writeDeadline), "Cannot limit a connection");
  check(natsOptions_SetPingInterval(raw, timeBetweenPings), "Cannot limit a connection");
  check(natsOptions_SetMaxPingsOut(raw, pingsWithoutAnswer), "Cannot limit a connection");
  check(natsOptions_SetMaxReconnect(raw, -1), "Cannot limit a connection");
  check(natsOptions_SetReconnectWait(raw, timeBetweenAttempts), "Cannot limit a connection");
  // What cannot be sent now is not sent later behind our back: by then it may have been given up.
  check(natsOptions_SetReconnectBufSize(raw, 1), "Cannot limit a connection");
  return options;
}

NATSConnection::NATSConnection(const NATSStreamSettings &settings,
                               const std::weak_ptr<NATSListener> &listener)
    : settings_(settings), number_(Listeners::shared().add(listener)) {
  void *const closure = reinterpret_cast<void *>(number_);
  try {
    const auto options = natsOptionsFrom(settings);
    check(natsOptions_SetDisconnectedCB(options.get(), changed, closure), "Cannot watch a connection");
    check(natsOptions_SetReconnectedCB(options.get(), changed, closure), "Cannot watch a connection");
    check(natsOptions_SetClosedCB(options.get(), changed, closure), "Cannot watch a connection");
    natsConnection *connection = nullptr;
    const natsStatus status = natsConnection_Connect(&connection, options.get());
    connection_.reset(connection);
    check(status, "the stream cannot be reached");
    jsOptions jetStream;
    check(jsOptions_Init(&jetStream), "Cannot use JetStream");
    jetStream.Wait = requestTimeout;
    jetStream.PublishAsync.MaxPending = mostPending;
    jetStream.PublishAsync.AckHandler = acknowledged;
    jetStream.PublishAsync.AckHandlerClosure = closure;
    jsCtx *context = nullptr;
    check(natsConnection_JetStream(&context, connection, &jetStream), "Cannot use JetStream");
    context_.reset(context);
  } catch (...) {
    Listeners::shared().remove(number_);
    throw;
  }
}

NATSConnection::~NATSConnection() {
  Listeners::shared().remove(number_);
}

bool NATSConnection::isConnected() const {
  return natsConnection_Status(connection_.get()) == NATS_CONN_STATUS_CONNECTED;
}

bool NATSConnection::isClosed() const {
  return natsConnection_IsClosed(connection_.get());
}

std::string NATSConnection::findStream() {
  jsErrCode code{};
  jsStreamInfo *info = nullptr;
  natsStatus status = js_GetStreamInfo(&info, context_.get(), settings_.name.c_str(), nullptr, &code);
  NATSPointer<jsStreamInfo> found(info);
  if (status == NATS_NOT_FOUND || code == JSStreamNotFoundErr) {
    const std::string subjects = settings_.subject + ".>";
    const char *subject = subjects.c_str();
    jsStreamConfig config;
    jsStreamConfig_Init(&config);
    config.Name = settings_.name.c_str();
    config.Subjects = &subject;
    config.SubjectsLen = 1;
    config.Storage = js_FileStorage;
    config.Discard = js_DiscardNew;
    config.Replicas = settings_.replicas;
    config.Duplicates = nanosecondsOfDuplicates;
    info = nullptr;
    status = js_AddStream(&info, context_.get(), &config, nullptr, &code);
    found.reset(info);
  }
  if (status == NATS_OK) return {};
  const char *const details = nats_GetLastError(nullptr);
  return "the stream " + settings_.name + " is not there: " + natsStatus_GetText(status) +
         (details != nullptr && *details != '\0' ? std::string(" (") + details + ")" : "");
}

void NATSConnection::send(NATSPointer<natsMsg> message, NATSListener &listener) {
  jsPubOptions options;
  jsPubOptions_Init(&options);
  options.MaxWait = settings_.attemptTimeout.count();
  options.ExpectStream = settings_.name.c_str();
  natsMsg *raw = message.get();
  const natsStatus status = js_PublishMsgAsync(context_.get(), &raw, &options);
  if (raw == nullptr) message.release();  // it is the library's now, until it replies
  if (status != NATS_OK && message != nullptr) listener.replied(std::move(message), replyOf(status));
}

}  // namespace kx::collector
