#include "tools/collector/Recorder.h"

#include <algorithm>
#include <chrono>

#include "tools/collector/Encoding.h"

namespace kx::collector {

namespace {

// Of what lists show. Longer ones are in the text.
constexpr std::size_t maximumSizeInLists = 200;
constexpr std::size_t maximumLogins = 1000;

std::int64_t now() {
  using std::chrono::milliseconds;
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<milliseconds>(sinceEpoch).count();
}

std::optional<std::string> textIn(const JSONValue &value) {
  if (!value.isText()) return std::nullopt;
  return std::string(beginningOf(value.text, maximumSizeInLists));
}

std::optional<double> numberIn(const JSONValue &value) {
  if (!value.isNumber()) return std::nullopt;
  return value.number();
}

/// What lists show of a message, as far as it has it.
void summarize(const MessageValues &message, RecordSummary &summary) {
  summary.device = textIn(message["ifa"]);
  summary.bundle = textIn(message["bundleId"]);
  summary.eventId = textIn(message["id"]);
  summary.latitude = numberIn(message["lat"]);
  summary.longitude = numberIn(message["lon"]);
  summary.horizontalAccuracy = numberIn(message["horizontalAccuracy"]);
  if (const JSONValue &time = message["eventTime"]; time.isInteger())
    summary.eventTime = time.signedInteger();
}

}  // namespace

Record recordOf(const std::string &client, const Request &request, const Answer &answer) {
  Record record;
  record.time = now();
  record.kind = nameOf(answer.endpoint);
  record.accepted = answer.reason.empty();
  record.status = answer.status;
  record.reason = answer.reason;
  record.packedSize = request.body.size();
  record.unpackedSize = answer.text ? answer.text->size() : 0;
  record.warnings = answer.warnings;
  if (!answer.fault.empty()) record.fault = answer.fault;
  record.microseconds.receive = request.receiveTime.count();
  record.microseconds.work = answer.workTime.count();
  record.method = request.method;
  record.target = request.target;
  record.remoteAddress = client;
  record.headerFields = request.fields;
  record.body = request.body;
  record.text = answer.text;
  record.offending = answer.offending;
  record.answerFields = answer.fields();
  if (answer.message != nullptr) {
    summarize(*answer.message, record);
  } else if (const Document *const message = answer.messageObject()) {
    summarize(MessageValues(*message), record);
  }
  return record;
}

namespace {

std::string textOf(const std::exception_ptr &failure) {
  if (failure == nullptr) return {};
  try {
    std::rethrow_exception(failure);
  } catch (const std::exception &error) {
    return std::string("a request could not be stored: ") + error.what();
  }
}

}  // namespace

void Recorder::received(const std::string &client, const Request &request, const Answer &answer) {
  receive(client, request, answer, [](const Keeping &) {});
}

void Recorder::receive(const std::string &client, const Request &request, const Answer &answer,
                       const Kept &kept) {
  // What is known of it by now comes before anything that its end brings.
  const std::uint64_t id =
      store_.append(recordOf(client, request, answer),
                    [kept](const std::exception_ptr &failure) { kept({textOf(failure)}); });
  if (!answer.drop && !answer.stall) unanswered_[client] = id;
  follow(id, request, answer);
  next_.received(client, request, answer);
}

void Recorder::follow(std::uint64_t id, const Request &request, const Answer &answer) {
  if (answer.accessToken) {
    logins_.push_back({id, *answer.accessToken, std::chrono::steady_clock::now()});
    if (logins_.size() > maximumLogins) logins_.pop_front();
  } else if (answer.endpoint == Endpoint::message && !logins_.empty()) {
    // Refused or not: its client goes on, and its record tells what is wrong.
    for (const std::string_view value : request.values("Authorization")) {
      logins_.erase(std::remove_if(logins_.begin(), logins_.end(),
                                   [&value](const Login &login) { return value == "Bearer " + login.token; }),
                    logins_.end());
    }
  }
}

void Recorder::checkLogins(std::chrono::steady_clock::time_point now) {
  while (!logins_.empty() && now - logins_.front().time >= patience) {
    store_.addWarning(logins_.front().id,
                      "no message has followed this login for " + std::to_string(patience.count()) + " s");
    logins_.pop_front();
  }
}

void Recorder::answered(const std::string &client, std::chrono::microseconds time) {
  const auto found = unanswered_.find(client);
  if (found == unanswered_.end()) return;
  store_.setSendTime(found->second, time.count());
  unanswered_.erase(found);
}

void Recorder::failed(const std::string &client, const std::string &reason) {
  unanswered_.erase(client);
  next_.failed(client, reason);
}

}  // namespace kx::collector
