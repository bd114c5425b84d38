#include "tests/support/FakeService.h"

#include <stdexcept>
#include <utility>

namespace kx {

GVariant *FakeService::parsed(const std::string &text) {
  GVariant *const value = g_variant_parse(nullptr, text.c_str(), nullptr, nullptr, nullptr);
  if (value == nullptr) throw std::invalid_argument("not a value: " + text);
  return value;
}

void FakeService::appear() {
  connection_ = bus_.connect();
  filter_ = g_dbus_connection_add_filter(connection_.get(), &whenMessage, this, nullptr);
  GVariant *const result = g_dbus_connection_call_sync(
      connection_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "RequestName", g_variant_new("(su)", name_.c_str(), 0U), nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr,
      nullptr);
  if (result == nullptr) throw std::runtime_error("the name is not to be had: " + name_);
  g_variant_unref(result);
}

void FakeService::vanish() {
  if (connection_ == nullptr) return;
  g_dbus_connection_close_sync(connection_.get(), nullptr, nullptr);
  g_dbus_connection_remove_filter(connection_.get(), filter_);
  connection_.reset();
}

void FakeService::answer(const std::string &method, Answer answer) {
  const std::lock_guard<std::mutex> lock(mutex_);
  refusals_.erase(method);
  answers_[method] = std::move(answer);
}

void FakeService::answer(const std::string &method, const std::string &text) {
  answer(method, [text](GDBusMessage *) { return text.empty() ? nullptr : parsed(text); });
}

void FakeService::refuse(const std::string &method, const std::string &errorName,
                         const std::string &message) {
  const std::lock_guard<std::mutex> lock(mutex_);
  refusals_[method] = {errorName, message};
}

void FakeService::answerNothingSpecial() {
  const std::lock_guard<std::mutex> lock(mutex_);
  answers_.clear();
  refusals_.clear();
}

int FakeService::calls(const std::string &method) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = calls_.find(method);
  return found == calls_.end() ? 0 : found->second;
}

int FakeService::calls() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  int all = 0;
  for (const auto &[method, count] : calls_) all += count;
  return all;
}

void FakeService::emit(const std::string &path, const char *interface, const char *signal,
                       GVariant *parameters) {
  g_dbus_connection_emit_signal(connection_.get(), nullptr, path.c_str(), interface, signal, parameters,
                                nullptr);
}

void FakeService::flush() const {
  GVariant *const answer = g_dbus_connection_call_sync(
      connection_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId",
      nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
  if (answer != nullptr) g_variant_unref(answer);
}

GDBusMessage *FakeService::whenMessage(GDBusConnection *connection, GDBusMessage *message,
                                       gboolean isIncoming, gpointer data) {
  if (isIncoming == FALSE || g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL) {
    return message;
  }
  GDBusMessage *const reply = static_cast<FakeService *>(data)->replyTo(message);
  if (reply != nullptr) {
    g_dbus_connection_send_message(connection, reply, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
    g_object_unref(reply);
  }
  g_main_context_wakeup(nullptr);  // where somebody may wait for it
  g_object_unref(message);
  return nullptr;
}

GDBusMessage *FakeService::replyTo(GDBusMessage *call) {
  const std::string method = g_dbus_message_get_member(call);
  Answer answer = [](GDBusMessage *) { return g_variant_new("()"); };
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    ++calls_[method];
    const auto refusal = refusals_.find(method);
    if (refusal != refusals_.end()) {
      return g_dbus_message_new_method_error_literal(call, refusal->second.first.c_str(),
                                                     refusal->second.second.c_str());
    }
    const auto found = answers_.find(method);
    if (found != answers_.end()) answer = found->second;
  }
  GVariant *const body = answer(call);
  if (body == nullptr) return nullptr;
  GDBusMessage *const reply = g_dbus_message_new_method_reply(call);
  g_dbus_message_set_body(reply, body);
  return reply;
}

}  // namespace kx
