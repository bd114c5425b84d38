#include "tools/collector/StreamForwarder.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <boost/asio/post.hpp>
#include <stdexcept>
#include <utility>

#include "tools/collector/Encoding.h"

namespace kx::collector {

namespace net = boost::asio;

namespace {

constexpr std::size_t maximumSizeOfName = 200;  // of an application, or of an id
constexpr std::size_t maximumSizeOfValue = 300;

bool isUsual(char character) {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
         (character >= '0' && character <= '9') || character == '-' || character == '_';
}

/// Words of plain characters with dots between them: neither wildcards, nor blanks, nor empty words, which
/// mean something, or nothing, in a subject.
bool isUsualName(std::string_view name) {
  bool isInWord = false;
  for (const char character : name) {
    if (character != '.' && !isUsual(character)) return false;
    if (character == '.' && !isInWord) return false;
    isInWord = character != '.';
  }
  return isInWord && name.size() <= maximumSizeOfName;
}

/// The same for the same id, another for another, and nothing but plain characters in it.
std::string plainId(const std::string &id) {
  if (!id.empty() && id.size() <= maximumSizeOfName && std::all_of(id.begin(), id.end(), isUsual)) return id;
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned size = 0;
  if (EVP_Digest(id.data(), id.size(), digest.data(), &size, EVP_sha256(), nullptr) != 1) {
    throw std::runtime_error("Cannot name a message");
  }
  return "sha256:" + hexadecimal({reinterpret_cast<const char *>(digest.data()), size});
}

/// What a header of the stream can have.
std::string printableASCII(std::string_view text) {
  std::string shown(text.substr(0, maximumSizeOfValue));
  for (char &character : shown) {
    if (character < ' ' || character > '~') character = '?';
  }
  return shown;
}

std::string textOf(const JSONValue &value) {
  return value.isText() ? std::string(value.text) : std::string();
}

}  // namespace

void StreamForwarder::receive(const std::string &client, const Request &request, const Answer &answer,
                              const Kept &kept) {
  const bool isMessage = answer.endpoint == Endpoint::message && answer.reason.empty();
  if (!isMessage) return next_.receive(client, request, answer, kept);
  struct Pending {
    std::string client;
    Request request;
    Answer answer;
    Kept kept;
  };
  auto pending = std::make_shared<Pending>();
  pending->client = client;
  pending->request.method = request.method;
  pending->request.target = request.target;
  pending->request.receiveTime = request.receiveTime;
  pending->answer.endpoint = answer.endpoint;
  pending->answer.workTime = answer.workTime;
  pending->answer.drop = answer.drop;
  pending->answer.fault = answer.fault;
  pending->kept = kept;
  stream_.publish(messageFor(client, request, answer),
                  // It keeps nothing: what is in it goes on the thread where it was made.
                  [this, pending = std::move(pending)](const StreamOutcome &outcome) mutable {
                    net::post(io_, [this, pending = std::move(pending), outcome] {
                      if (!outcome.problem.empty()) {
                        pending->answer.status = outcome.status;
                        pending->answer.reason = outcome.problem;
                      }
                      next_.received(pending->client, pending->request, pending->answer);
                      pending->kept({outcome.problem, outcome.problem.empty() ? 0 : outcome.status});
                    });
                  });
}

StreamMessage StreamForwarder::messageFor(const std::string &client, const Request &request,
                                          const Answer &answer) {
  StreamMessage message;
  std::string application;
  std::string id;
  if (answer.message != nullptr) {
    application = textOf((*answer.message)["bundleId"]);
    id = textOf((*answer.message)["id"]);
  } else if (const Document *const document = answer.messageObject()) {
    application = textOf(MessageValues(*document)["bundleId"]);
    id = textOf(MessageValues(*document)["id"]);
  }
  message.subject = subjectFor(application);
  message.id = plainId(id);
  message.payload = answer.text.value_or("");
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  message.headers = {
      {"Kx-Received",
       std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch).count())},
      {"Kx-Client", client}};
  for (const char *const name : {"User-Agent", "Accept-Language"}) {
    const auto values = request.values(name);
    if (!values.empty()) message.headers.emplace_back(name, printableASCII(values.front()));
  }
  return message;
}

std::string StreamForwarder::subjectFor(const std::string &application) {
  const bool isKnown = applications_.count(application) != 0;
  const bool mayBeKnown = applications_.size() < maximumSubjects && isUsualName(application);
  if (!isKnown && !mayBeKnown) return subject_ + ".other";
  applications_.insert(application);
  return subject_ + ".app." + application;
}

}  // namespace kx::collector
