#include "tools/collector/NATSConnection.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "tools/collector/CertificateStore.h"
#include "tools/collector/DuplicateCheck.h"

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

/// Who hears of a connection.
struct Listening {
  std::weak_ptr<NATSListener> listener;
  std::shared_ptr<DuplicateCheck> duplicates;
};

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
    listeners_[++last_] = {listener, nullptr};
    return last_;
  }

  void setDuplicates(std::intptr_t number, std::shared_ptr<DuplicateCheck> duplicates) {
    const std::lock_guard<std::mutex> lock(mutex_);
    listeners_[number].duplicates = std::move(duplicates);
  }

  void remove(std::intptr_t number) {
    Listening removed;  // It goes after the lock: its thread may wait for that.
    const std::lock_guard<std::mutex> lock(mutex_);
    removed = std::exchange(listeners_[number], {});
    listeners_.erase(number);
  }

  /// Nobody where it was removed.
  Listening find(const void *closure) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = listeners_.find(reinterpret_cast<std::intptr_t>(closure));
    return found == listeners_.end() ? Listening() : found->second;
  }

 private:
  std::mutex mutex_;
  std::intptr_t last_ = 0;
  std::map<std::intptr_t, Listening> listeners_;
};

void changed(natsConnection * /*connection*/, void *closure) {
  if (const auto listener = Listeners::shared().find(closure).listener.lock()) listener->changed();
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

NATSListener::Reply replyToDuplicate(bool isThere) {
  NATSListener::Reply reply;
  reply.isDuplicate = isThere;
  reply.isPassing = !isThere;
  if (!isThere) reply.problem = "the stream says that it has the message, and does not show it";
  return reply;
}

std::string idOf(natsMsg *message) {
  const char *id = nullptr;
  return natsMsgHeader_Get(message, headerOfMessageId, &id) == NATS_OK ? id : "";
}

/// As DuplicateCheck asks: of the node that leads, since another one may know less.
std::optional<std::string> readId(jsCtx *context, const std::string &stream, std::uint64_t sequence) {
  natsMsg *raw = nullptr;
  jsErrCode code{};
  const natsStatus status = js_GetMsg(&raw, context, stream.c_str(), sequence, nullptr, &code);
  const NATSPointer<natsMsg> message(raw);
  if (status == NATS_NOT_FOUND || code == JSNoMessageFoundErr) return std::string();
  if (status != NATS_OK) return std::nullopt;
  return idOf(raw);
}

void acknowledged(jsCtx * /*context*/, natsMsg *message, jsPubAck *acknowledgement, jsPubAckErr *error,
                  void *closure) {
  NATSPointer<natsMsg> own(message);
  const Listening listening = Listeners::shared().find(closure);
  const auto listener = listening.listener.lock();
  if (listener == nullptr) return;
  if (acknowledgement == nullptr) {
    return listener->replied(std::move(own), error == nullptr ? replyOf(NATS_ERR) : replyOf(*error));
  }
  if (!acknowledgement->Duplicate) return listener->replied(std::move(own), {});
  const std::string id = idOf(message);
  const auto kept = std::make_shared<NATSPointer<natsMsg>>(std::move(own));  // A function can be copied.
  listening.duplicates->check(acknowledgement->Sequence, id,
                              [kept, hearing = listening.listener](bool isThere) {
                                if (const auto hears = hearing.lock()) {
                                  hears->replied(std::move(*kept), replyToDuplicate(isThere));
                                }
                              });
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
  servers.reserve(settings.servers.size());
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
  // NOLINTNEXTLINE(performance-no-int-to-ptr): callbacks carry a pointer, and an address may come again
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
    context_.reset(context, NATSDeleter());
    Listeners::shared().setDuplicates(
        number_,
        std::make_shared<DuplicateCheck>([asked = context_, stream = settings_.name](std::uint64_t sequence) {
          return readId(asked.get(), stream, sequence);
        }));
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
  if (raw == nullptr) static_cast<void>(message.release());  // it is the library's now, until it replies
  if (status != NATS_OK && message != nullptr) listener.replied(std::move(message), replyOf(status));
}

}  // namespace kx::collector
