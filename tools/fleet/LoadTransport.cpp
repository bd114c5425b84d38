#include "tools/fleet/LoadTransport.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <stdexcept>

#include "platform/linux/facts/Environment.h"
#include "platform/linux/https/CurlRequest.h"
#include "tools/fleet/LoadClient.h"

namespace kx::fleet {

namespace {

constexpr std::chrono::milliseconds expiryStep(100);
constexpr int eventsAtATime = 256;

CurlSettings settingsWith(std::optional<std::string> certificateAuthorityFile) {
  CurlSettings settings;
  settings.certificateAuthorityFile = std::move(certificateAuthorityFile);
  settings.proxy = CurlProxy(Environment({}));  // it would carry the load to where nobody has looked
  return settings;
}

void requireCurl() {
  if (const auto missing = CurlLibrary::open()) throw std::runtime_error(*missing);
  static const CURLcode result = curl_global_init(CURL_GLOBAL_DEFAULT);
  if (result != CURLE_OK) throw std::runtime_error(curl_easy_strerror(result));
}

CurlSettings readySettings(std::optional<std::string> certificateAuthorityFile) {
  requireCurl();
  return settingsWith(std::move(certificateAuthorityFile));
}

/// "host:port:address,address", by which curl asks nobody else.
std::string resolvedText(const LoadService &service) {
  const bool isIPv6 = service.host.find(':') != std::string::npos;
  std::string text = (isIPv6 ? "[" + service.host + "]" : service.host) + ":" + service.port + ":";
  for (const auto &address : service.addresses) {
    if (text.back() != ':') text += ',';
    text += address.text.find(':') == std::string::npos ? address.text : "[" + address.text + "]";
  }
  return text;
}

std::string connectProblem(CURL *easy) {
  long number = 0;
  curl_easy_getinfo(easy, CURLINFO_OS_ERRNO, &number);
  if (number == ECONNREFUSED) return "refused";
  if (number == EADDRNOTAVAIL) return "no local port left";
  if (number == EMFILE || number == ENFILE) return "no descriptor left";
  return "not reached";
}

std::string problemOf(long code, CURL *easy) {
  switch (code) {
    case CURLE_COULDNT_CONNECT:
      return connectProblem(easy);
    case CURLE_OPERATION_TIMEDOUT:
      return "timeout";
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_CERTPROBLEM:
      return "TLS";
    case CURLE_GOT_NOTHING:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
    case CURLE_PARTIAL_FILE:
      return "closed";
    default:
      return curl_easy_strerror(static_cast<CURLcode>(code));
  }
}

using Done = std::vector<std::unique_ptr<LoadClient::Exchange>>;

/// They may send more, so nothing of what was at hand before is used afterwards.
void complete(const Done &done) {
  for (const auto &exchange : done) exchange->completion(exchange->outcome);
}

}  // namespace

LoadTransport::LoadTransport(std::vector<LoadService> services,
                             std::optional<std::string> certificateAuthorityFile, Limits limits)
    : services_(std::move(services)),
      limits_(limits),
      settings_(readySettings(std::move(certificateAuthorityFile))),
      trust_(settings_),
      resolved_(nullptr, curl_slist_free_all),
      epoll_(epoll_create1(EPOLL_CLOEXEC)),
      nextExpiry_(Clock::now() + expiryStep) {
  if (epoll_ < 0) throw std::runtime_error("there is no epoll");
  for (const LoadService &service : services_) {
    curl_slist *const longer = curl_slist_append(resolved_.get(), resolvedText(service).c_str());
    if (longer == nullptr) throw std::bad_alloc();
    static_cast<void>(resolved_.release());
    resolved_.reset(longer);
  }
}

LoadTransport::~LoadTransport() {
  clients_.clear();
  ended_.clear();
  close(epoll_);
}

bool LoadTransport::send(std::uint32_t device, std::uint8_t process, LoadRequest request,
                         Completion completion) {
  const auto former = clients_.find(device);
  if (former != clients_.end() && former->second->process != process) forget(*former->second);
  auto &kept = clients_[device];
  if (kept == nullptr) {
    kept = std::make_unique<LoadClient>(*this, device, process);
    fallAsleep(*kept);
  }
  LoadClient &client = *kept;
  if (client.sleeps) {
    if (!makeRoom() || !client.connect()) return false;
    asleep_.erase({*client.sleeps, &client});
    client.sleeps.reset();
  }
  if (client.lingers) lingering_.erase({*client.lingers, &client});
  client.lingers.reset();
  connected_.insert(&client);
  mostConnected_ = std::max(mostConnected_, connected());

  auto exchange = std::make_unique<LoadClient::Exchange>();
  exchange->completion = std::move(completion);
  LoadClient::Exchange &open = *exchange;
  exchange->request = std::make_unique<CurlRequest>(
      std::move(request.head), std::move(request.body),
      [&open](const std::shared_ptr<URLResponse> &response, const std::optional<Error> &error) {
        open.outcome.response = response;
        if (error) open.outcome.problem = problemOf(error->code, open.request->easy());
      });
  if (!client.begin(std::move(exchange))) {
    settle(client);
    return false;
  }
  ++openRequests_;
  return true;
}

void LoadTransport::turn(std::chrono::milliseconds atMost) {
  const auto begin = Clock::now();
  auto until = begin + atMost;
  if (!timers_.empty()) until = std::min(until, timers_.begin()->first);
  if (!lingering_.empty()) until = std::min(until, lingering_.begin()->first);
  const auto wait = std::max(std::chrono::ceil<std::chrono::milliseconds>(until - begin).count(),
                             std::chrono::milliseconds::rep{0});
  std::array<epoll_event, eventsAtATime> events;
  const int count = epoll_wait(epoll_, events.data(), eventsAtATime, static_cast<int>(wait));
  for (int i = 0; i < count; ++i) {
    const epoll_event &event = events[static_cast<std::size_t>(i)];
    const int descriptor = event.data.fd;
    LoadClient *const client = byDescriptor_[static_cast<std::size_t>(descriptor)];
    if (client == nullptr) continue;  // closed since
    int mask = 0;
    if ((event.events & (EPOLLIN | EPOLLHUP)) != 0) mask |= CURL_CSELECT_IN;
    if ((event.events & EPOLLOUT) != 0) mask |= CURL_CSELECT_OUT;
    if ((event.events & EPOLLERR) != 0) mask |= CURL_CSELECT_ERR;
    act(*client, descriptor, mask);
  }
  const auto now = Clock::now();
  while (!timers_.empty() && timers_.begin()->first <= now) {
    LoadClient &client = *timers_.begin()->second;
    timers_.erase(timers_.begin());
    client.timer.reset();
    act(client, CURL_SOCKET_TIMEOUT, 0);
  }
  while (!lingering_.empty() && lingering_.begin()->first <= now) disconnect(*lingering_.begin()->second);
  while (asleep_.size() > limits_.sessions) forget(*asleep_.begin()->second);
  if (now >= nextExpiry_) expire();
}

void LoadTransport::endAll() {
  Done done;
  const std::vector<LoadClient *> all(connected_.begin(), connected_.end());
  for (LoadClient *const client : all) {
    while (!client->exchanges.empty()) {
      done.push_back(client->take(client->exchanges.size() - 1));
      done.back()->request.reset();
    }
    settle(*client);
  }
  openRequests_ = 0;
  for (const auto &exchange : done) exchange->outcome.problem = "no answer by the end";
  complete(done);
}

bool LoadTransport::makeRoom() {
  if (connected() < limits_.connections) return true;
  if (lingering_.empty()) return false;
  disconnect(*lingering_.begin()->second);
  return true;
}

void LoadTransport::act(LoadClient &client, int descriptor, int mask) {
  // What a server says unasked, be it that it closes, is the end of a connection that nobody uses.
  if (client.lingers && descriptor != CURL_SOCKET_TIMEOUT) return disconnect(client);
  int running = 0;
  curl_multi_socket_action(client.multi, descriptor, mask, &running);
  finish(client);
}

void LoadTransport::finish(LoadClient &client) {
  Done done;
  int left = 0;
  while (const CURLMsg *const message = curl_multi_info_read(client.multi, &left)) {
    const CURLcode result = message->data.result;
    const auto found = std::find_if(
        client.exchanges.begin(), client.exchanges.end(),
        [easy = message->easy_handle](const auto &exchange) { return exchange->request->easy() == easy; });
    auto exchange = client.take(static_cast<std::size_t>(found - client.exchanges.begin()));
    if (exchange->request->isBarred(result) && trust_.lookFurther()) {
      if (client.begin(std::move(exchange))) continue;
      throw std::runtime_error("curl has run out of memory");
    }
    exchange->request->end(result);
    if (!exchange->outcome.problem.empty() && std::exchange(client.wasBarred, false))
      exchange->outcome.problem = "an address that is none of the service's";
    exchange->request.reset();
    done.push_back(std::move(exchange));
  }
  if (done.empty()) return;
  openRequests_ -= done.size();
  settle(client);
  complete(done);
}

/// After a request of it has ended. One whose process has ended goes with the last.
void LoadTransport::settle(LoadClient &client) {
  if (!client.exchanges.empty()) return;
  connected_.erase(&client);
  if (client.hasEnded) {
    ended_.erase(std::find_if(ended_.begin(), ended_.end(),
                              [&client](const auto &one) { return one.get() == &client; }));
    return;
  }
  client.lingers = Clock::now() + limits_.linger;
  lingering_.insert({*client.lingers, &client});
  client.watchIdleConnections();
}

void LoadTransport::disconnect(LoadClient &client) {
  if (client.lingers) lingering_.erase({*client.lingers, &client});
  client.lingers.reset();
  client.disconnect();
  fallAsleep(client);
}

void LoadTransport::fallAsleep(LoadClient &client) {
  client.sleeps = Clock::now();
  asleep_.insert({*client.sleeps, &client});
}

void LoadTransport::forget(LoadClient &client) {
  if (client.lingers) disconnect(client);
  if (client.sleeps) asleep_.erase({*client.sleeps, &client});
  client.sleeps.reset();
  const auto kept = clients_.find(client.device);
  client.hasEnded = true;
  if (!client.exchanges.empty()) ended_.push_back(std::move(kept->second));
  clients_.erase(kept);
}

/// Requests that take too long end.
void LoadTransport::expire() {
  const auto now = Clock::now();
  nextExpiry_ = now + expiryStep;
  Done done;
  const std::vector<LoadClient *> all(connected_.begin(), connected_.end());
  for (LoadClient *const client : all) {
    for (std::size_t i = client->exchanges.size(); i-- > 0;) {
      if (!client->exchanges[i]->request->isOverdue(now)) continue;
      auto exchange = client->take(i);
      --openRequests_;
      exchange->request->expire();
      exchange->request.reset();
      done.push_back(std::move(exchange));
    }
    settle(*client);
  }
  complete(done);
}

void LoadTransport::watch(LoadClient &client, int descriptor, unsigned events) {
  const auto place = static_cast<std::size_t>(descriptor);
  if (place >= byDescriptor_.size()) byDescriptor_.resize(place + 1);
  epoll_event event{};
  event.events = events;
  event.data.fd = descriptor;
  if (events == 0) {
    epoll_ctl(epoll_, EPOLL_CTL_DEL, descriptor, &event);
    byDescriptor_[place] = nullptr;
    return;
  }
  byDescriptor_[place] = &client;
  if (epoll_ctl(epoll_, EPOLL_CTL_MOD, descriptor, &event) != 0 && errno == ENOENT)
    epoll_ctl(epoll_, EPOLL_CTL_ADD, descriptor, &event);
}

bool LoadTransport::isAllowed(const std::string &address) const {
  return std::any_of(services_.begin(), services_.end(), [&address](const LoadService &service) {
    return std::any_of(service.addresses.begin(), service.addresses.end(),
                       [&address](const auto &one) { return one.text == address; });
  });
}

}  // namespace kx::fleet
