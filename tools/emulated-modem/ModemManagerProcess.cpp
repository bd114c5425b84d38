#include "tools/emulated-modem/ModemManagerProcess.h"

#include <sys/prctl.h>

#include <csignal>
#include <iostream>
#include <stdexcept>

namespace kx::modem {

namespace {

constexpr const char *service = "org.freedesktop.ModemManager1";
constexpr const char *modemInterface = "org.freedesktop.ModemManager1.Modem";
constexpr const char *root = "/org/freedesktop/ModemManager1";

constexpr guint32 doNotQueue = 4;   // DBUS_NAME_FLAG_DO_NOT_QUEUE
constexpr guint32 becameOwner = 1;  // DBUS_REQUEST_NAME_REPLY_PRIMARY_OWNER

constexpr const char *authority =
    "<node><interface name='org.freedesktop.PolicyKit1.Authority'>"
    "<method name='CheckAuthorization'>"
    "<arg type='(sa{sv})' direction='in'/><arg type='s' direction='in'/><arg type='a{ss}' direction='in'/>"
    "<arg type='u' direction='in'/><arg type='s' direction='in'/><arg type='(bba{ss})' direction='out'/>"
    "</method></interface></node>";

void allow(GDBusConnection * /*connection*/, const gchar * /*sender*/, const gchar * /*path*/,
           const gchar * /*interface*/, const gchar * /*method*/, GVariant * /*parameters*/,
           GDBusMethodInvocation *invocation, gpointer /*data*/) {
  g_dbus_method_invocation_return_value(invocation, g_variant_new_parsed("((true, false, @a{ss} {}),)"));
}

[[noreturn]] void fail(const std::string &what, GError *error) {
  const GLibPointer<GError> owned(error);
  throw std::runtime_error(what + ": " + error->message);
}

}  // namespace

ModemManagerProcess::ModemManagerProcess(const std::string &program, const std::string &busAddress,
                                         std::string portName)
    : portName_(std::move(portName)) {
  GError *error = nullptr;
  bus_.reset(g_dbus_connection_new_for_address_sync(
      busAddress.c_str(),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, &error));
  if (bus_ == nullptr) fail(busAddress, error);
  becomeAuthority();
  modemAdded_ = g_dbus_connection_signal_subscribe(bus_.get(), service, "org.freedesktop.DBus.ObjectManager",
                                                   "InterfacesAdded", root, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
                                                   &whenModemAdded, this, nullptr);
  nameWatch_ = g_bus_watch_name_on_connection(bus_.get(), service, G_BUS_NAME_WATCHER_FLAGS_NONE,
                                              &whenAppeared, nullptr, this, nullptr);
  launch(program, busAddress);
}

ModemManagerProcess::~ModemManagerProcess() {
  g_bus_unwatch_name(nameWatch_);
  g_dbus_connection_signal_unsubscribe(bus_.get(), modemAdded_);
  g_subprocess_send_signal(process_.get(), SIGKILL);  // it would take its time over a modem that is gone
  g_subprocess_wait(process_.get(), nullptr, nullptr);
}

void ModemManagerProcess::becomeAuthority() {
  GDBusNodeInfo *const node = g_dbus_node_info_new_for_xml(authority, nullptr);
  static const GDBusInterfaceVTable handlers{&allow, nullptr, nullptr, {}};
  GError *error = nullptr;
  const guint registration =
      g_dbus_connection_register_object(bus_.get(), "/org/freedesktop/PolicyKit1/Authority",
                                        node->interfaces[0], &handlers, nullptr, nullptr, &error);
  g_dbus_node_info_unref(node);
  if (registration == 0) fail("the authority", error);
  const GLibPointer<GVariant> owned(g_dbus_connection_call_sync(
      bus_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
      g_variant_new("(su)", "org.freedesktop.PolicyKit1", doNotQueue), nullptr, G_DBUS_CALL_FLAGS_NONE, -1,
      nullptr, &error));
  if (owned == nullptr) fail("the authority", error);
  guint32 result = 0;
  g_variant_get(owned.get(), "(u)", &result);
  if (result != becameOwner) throw std::runtime_error("the bus has an authority already");
}

void ModemManagerProcess::launch(const std::string &program, const std::string &busAddress) {
  const GLibPointer<GSubprocessLauncher> launcher(g_subprocess_launcher_new(
      static_cast<GSubprocessFlags>(G_SUBPROCESS_FLAGS_STDOUT_SILENCE | G_SUBPROCESS_FLAGS_STDERR_SILENCE)));
  g_subprocess_launcher_setenv(launcher.get(), "DBUS_SYSTEM_BUS_ADDRESS", busAddress.c_str(), TRUE);
  g_subprocess_launcher_set_child_setup(
      launcher.get(), [](gpointer) { prctl(PR_SET_PDEATHSIG, SIGKILL); }, nullptr, nullptr);
  GError *error = nullptr;
  // No devices of the machine's, none of its services, not its log; an interface to be given a modem by.
  process_.reset(g_subprocess_launcher_spawn(launcher.get(), &error, program.c_str(), "--test-enable",
                                             "--test-no-udev", "--test-no-suspend-resume", "--test-no-qrtr",
                                             "--log-file=/dev/null", nullptr));
  if (process_ == nullptr) fail(program, error);
}

void ModemManagerProcess::call(const char *path, const char *interface, const char *method,
                               GVariant *parameters) {
  g_dbus_connection_call(
      bus_.get(), service, path, interface, method, parameters, nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START, -1,
      nullptr,
      [](GObject *connection, GAsyncResult *result, gpointer) {
        GError *error = nullptr;
        const GLibPointer<GVariant> answer(
            g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), result, &error));
        const GLibPointer<GError> owned(error);
        if (error != nullptr) std::cerr << "ModemManager: " << error->message << '\n';
      },
      nullptr);
}

void ModemManagerProcess::plugIn() {
  const std::string device = "kx-" + std::to_string(++plugged_);
  const char *const ports[] = {portName_.c_str(), nullptr};
  call(root, "org.freedesktop.ModemManager1.Test", "SetProfile",
       g_variant_new("(ss^as)", device.c_str(), "generic", ports));
}

void ModemManagerProcess::replugModem() {
  if (plugged_ == 0) return;  // to come when ModemManager is there
  // A device that is inhibited is gone for everybody; the next one has another name.
  const std::string device = "/virtual/kx-" + std::to_string(plugged_);
  call(root, service, "InhibitDevice", g_variant_new("(sb)", device.c_str(), TRUE));
  plugIn();
}

void ModemManagerProcess::whenAppeared(GDBusConnection * /*connection*/, const gchar * /*name*/,
                                       const gchar * /*owner*/, gpointer data) {
  static_cast<ModemManagerProcess *>(data)->plugIn();
}

void ModemManagerProcess::whenModemAdded(GDBusConnection * /*connection*/, const gchar * /*sender*/,
                                         const gchar * /*path*/, const gchar * /*interface*/,
                                         const gchar * /*signal*/, GVariant *parameters, gpointer data) {
  const char *path = nullptr;
  g_variant_get_child(parameters, 0, "&o", &path);
  const GLibPointer<GVariant> interfaces(g_variant_get_child_value(parameters, 1));
  const GLibPointer<GVariant> properties(
      g_variant_lookup_value(interfaces.get(), modemInterface, G_VARIANT_TYPE_VARDICT));
  // One without a SIM has failed, and cannot be enabled.
  gint32 state = 0;
  if (properties == nullptr || !g_variant_lookup(properties.get(), "State", "i", &state) || state < 0) return;
  static_cast<ModemManagerProcess *>(data)->call(path, modemInterface, "Enable", g_variant_new("(b)", TRUE));
}

}  // namespace kx::modem
