#include "tests/platform/linux/lifecycle/FakeLogind.h"

#include <fcntl.h>
#include <gio/gunixfdlist.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

#include "platform/linux/bus/MainContextScope.h"

namespace kx {

namespace {

constexpr const char *managerPath = "/org/freedesktop/login1";
constexpr const char *managerInterface = "org.freedesktop.login1.Manager";

// `Inhibit` may answer with anything, and properties are read by a method, so that they may, too.
constexpr const char *introspection =
    "<node><interface name='org.freedesktop.login1.Manager'>"
    "<method name='Inhibit'><arg type='s' direction='in'/><arg type='s' direction='in'/>"
    "<arg type='s' direction='in'/><arg type='s' direction='in'/></method></interface>"
    "<interface name='org.freedesktop.DBus.Properties'>"
    "<method name='Get'><arg type='s' direction='in'/><arg type='s' direction='in'/></method>"
    "</interface></node>";

/// Answers with a value that need not be what the introspection says.
void answer(GDBusMethodInvocation *invocation, GVariant *value, GUnixFDList *descriptors) {
  GDBusMessage *const reply =
      g_dbus_message_new_method_reply(g_dbus_method_invocation_get_message(invocation));
  g_dbus_message_set_body(reply, value);
  if (descriptors != nullptr) g_dbus_message_set_unix_fd_list(reply, descriptors);
  g_dbus_connection_send_message(g_dbus_method_invocation_get_connection(invocation), reply,
                                 G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
  g_object_unref(reply);
  g_object_unref(invocation);
}

}  // namespace

FakeLogind::FakeLogind(const PrivateBus &bus) : connection_(bus.connect()) {
  const MainContextScope scope(g_main_context_default());
  GDBusNodeInfo *const node = g_dbus_node_info_new_for_xml(introspection, nullptr);
  static const GDBusInterfaceVTable methods{&whenCalled, nullptr, nullptr, {}};
  for (GDBusInterfaceInfo **interface = node->interfaces; *interface != nullptr; ++interface) {
    objects_.push_back(g_dbus_connection_register_object(connection_.get(), managerPath, *interface, &methods,
                                                         this, nullptr, nullptr));
  }
  g_dbus_node_info_unref(node);
  GVariant *const owned = g_dbus_connection_call_sync(
      connection_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "RequestName", g_variant_new("(su)", "org.freedesktop.login1", 0U), nullptr, G_DBUS_CALL_FLAGS_NONE, -1,
      nullptr, nullptr);
  if (owned == nullptr) throw std::runtime_error("logind's name is not to be had");
  g_variant_unref(owned);
}

FakeLogind::~FakeLogind() {
  for (const guint object : objects_) g_dbus_connection_unregister_object(connection_.get(), object);
  g_dbus_connection_close_sync(connection_.get(), nullptr, nullptr);
  for (GDBusMethodInvocation *const invocation : unanswered_) g_object_unref(invocation);
  for (const int lock : locks_) close(lock);
}

void FakeLogind::whenCalled(GDBusConnection * /*connection*/, const gchar * /*sender*/,
                            const gchar * /*path*/, const gchar * /*interface*/, const gchar *method,
                            GVariant * /*parameters*/, GDBusMethodInvocation *invocation, gpointer data) {
  FakeLogind &logind = *static_cast<FakeLogind *>(data);
  if (std::string(method) == "Inhibit") {
    logind.inhibit(invocation);
  } else {
    logind.tellDelay(invocation);
  }
}

void FakeLogind::inhibit(GDBusMethodInvocation *invocation) {
  const gchar *what = nullptr;
  const gchar *who = nullptr;
  const gchar *why = nullptr;
  const gchar *mode = nullptr;
  g_variant_get(g_dbus_method_invocation_get_parameters(invocation), "(&s&s&s&s)", &what, &who, &why, &mode);
  requests.push_back(std::string(what) + ", " + who + ", " + mode);
  switch (mood) {
    case Mood::grants:
      return grant(invocation);
    case Mood::refuses:
      return g_dbus_method_invocation_return_dbus_error(
          invocation, "org.freedesktop.login1.OperationInProgress", "The operation is already in progress");
    case Mood::hangs:
      return unanswered_.push_back(invocation);
    case Mood::talksNonsense:
      return answer(invocation, g_variant_new("(s)", "granted"), nullptr);
    case Mood::sendsNoDescriptor:
      return answer(invocation, g_variant_new("(h)", 0), nullptr);
    case Mood::sendsAWrongIndex:
      return grant(invocation, 1);
  }
}

void FakeLogind::grant(GDBusMethodInvocation *invocation, gint32 index) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  locks_.push_back(ends[0]);
  GUnixFDList *const descriptors = g_unix_fd_list_new_from_array(&ends[1], 1);
  answer(invocation, g_variant_new("(h)", index), descriptors);
  g_object_unref(descriptors);
}

void FakeLogind::tellDelay(GDBusMethodInvocation *invocation) {
  const gchar *property = nullptr;
  g_variant_get(g_dbus_method_invocation_get_parameters(invocation), "(&s&s)", nullptr, &property);
  if (std::string(property) != "InhibitDelayMaxUSec") throw std::logic_error("another property is read");
  ++delaysRead;
  if (mood == Mood::hangs) return unanswered_.push_back(invocation);
  answer(invocation,
         g_variant_new("(v)", mood == Mood::talksNonsense ? g_variant_new_string("long")
                                                          : g_variant_new_uint64(longestDelay)),
         nullptr);
}

std::size_t FakeLogind::heldLocks() {
  const auto isGivenUp = [](int lock) {
    pollfd end{lock, POLLIN, 0};
    if (poll(&end, 1, 0) != 1) return false;
    close(lock);
    return true;
  };
  locks_.erase(std::remove_if(locks_.begin(), locks_.end(), isGivenUp), locks_.end());
  return locks_.size();
}

void FakeLogind::answerNow() {
  for (GDBusMethodInvocation *const invocation : std::exchange(unanswered_, {})) {
    if (std::string(g_dbus_method_invocation_get_method_name(invocation)) == "Inhibit") {
      grant(invocation);
    } else {
      answer(invocation, g_variant_new("(v)", g_variant_new_uint64(longestDelay)), nullptr);
    }
  }
}

void FakeLogind::emit(const char *signal, GVariant *parameters) const {
  g_dbus_connection_emit_signal(connection_.get(), nullptr, managerPath, managerInterface, signal, parameters,
                                nullptr);
}

}  // namespace kx
