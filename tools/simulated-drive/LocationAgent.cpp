// The agent that GeoClue asks, in the user's place, whether an application may know the position. GeoClue
// does nothing for a user who has none, and a machine without a desktop has none.

#include <gio/gio.h>

#include <iostream>
#include <memory>
#include <string>

namespace {

constexpr const char *usage =
    "usage: kx-location-agent ID\n"
    "Allows every application that asks GeoClue on the system bus to know the position. ID is the name by "
    "which\n"
    "GeoClue's configuration knows the agent ([agent] whitelist=ID). Runs until it is ended.\n"
    "Takes commands on its standard input, one a line: \"off\" and \"on\" to switch location services.\n";

constexpr const char *agentInterface = "org.freedesktop.GeoClue2.Agent";
constexpr const char *agentPath = "/org/freedesktop/GeoClue2/Agent";
constexpr guint32 exact = 8;  // GClueAccuracyLevel
constexpr const char *introspection = R"(<node><interface name="org.freedesktop.GeoClue2.Agent">
  <method name="AuthorizeApp">
    <arg type="s" direction="in"/><arg type="u" direction="in"/><arg type="b" direction="out"/><arg type="u" direction="out"/>
  </method>
  <property name="MaxAccuracyLevel" type="u" access="read"/>
</interface></node>)";

struct Agent {
  const char *identifier = nullptr;
  GDBusConnection *connection = nullptr;
  guint32 level = exact;  ///< the greatest accuracy that the user allows; 0 for none
};

/// GeoClue asks for applications that it can tell apart: those in sandboxes.
void authorize(GDBusConnection *, const gchar *, const gchar *, const gchar *, const gchar *,
               GVariant *parameters, GDBusMethodInvocation *invocation, gpointer) {
  const char *application = nullptr;
  guint32 requested = 0;
  g_variant_get(parameters, "(&su)", &application, &requested);
  std::cout << "allowed " << application << std::endl;
  g_dbus_method_invocation_return_value(invocation, g_variant_new("(bu)", TRUE, requested));
}

GVariant *property(GDBusConnection *, const gchar *, const gchar *, const gchar *, const gchar *, GError **,
                   gpointer data) {
  return g_variant_new_uint32(static_cast<Agent *>(data)->level);
}

void announceLevel(const Agent &agent) {
  GVariantDict changed;
  g_variant_dict_init(&changed, nullptr);
  g_variant_dict_insert(&changed, "MaxAccuracyLevel", "u", agent.level);
  g_dbus_connection_emit_signal(
      agent.connection, nullptr, agentPath, "org.freedesktop.DBus.Properties", "PropertiesChanged",
      g_variant_new("(s@a{sv}as)", agentInterface, g_variant_dict_end(&changed), nullptr), nullptr);
}

gboolean obey(GIOChannel *channel, GIOCondition, gpointer data) {
  auto &agent = *static_cast<Agent *>(data);
  gchar *line = nullptr;
  if (g_io_channel_read_line(channel, &line, nullptr, nullptr, nullptr) != G_IO_STATUS_NORMAL) {
    return G_SOURCE_REMOVE;  // there will be no more
  }
  const std::string command = g_strchomp(line);
  g_free(line);
  if (command != "off" && command != "on") {
    std::cerr << "kx-location-agent: there is no command \"" << command << "\"\n" << usage;
    return G_SOURCE_CONTINUE;
  }
  agent.level = command == "on" ? exact : 0;
  announceLevel(agent);
  std::cout << "location services " << command << std::endl;
  return G_SOURCE_CONTINUE;
}

/// Not waited for: GeoClue asks the agent for its properties before it answers.
void registerWithService(GDBusConnection *connection, const gchar *, const gchar *owner, gpointer data) {
  g_dbus_connection_call(
      connection, owner, "/org/freedesktop/GeoClue2/Manager", "org.freedesktop.GeoClue2.Manager", "AddAgent",
      g_variant_new("(s)", static_cast<Agent *>(data)->identifier), nullptr, G_DBUS_CALL_FLAGS_NONE, -1,
      nullptr,
      [](GObject *source, GAsyncResult *result, gpointer) {
        GError *error = nullptr;
        GVariant *const answer = g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &error);
        if (answer == nullptr) {
          std::cerr << "kx-location-agent: " << error->message << std::endl;
          g_error_free(error);
          return;
        }
        g_variant_unref(answer);
        std::cout << "registered" << std::endl;
      },
      nullptr);
}

}  // namespace

int main(int count, char **arguments) {
  if (count != 2 || arguments[1][0] == '-') {
    const bool asked = count == 2 && std::string(arguments[1]) == "--help";
    (asked ? std::cout : std::cerr) << usage;
    return asked ? 0 : 2;
  }
  GError *error = nullptr;
  Agent agent;
  agent.identifier = arguments[1];
  agent.connection = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
  if (agent.connection == nullptr) {
    std::cerr << "kx-location-agent: " << error->message << "\n";
    g_error_free(error);
    return 1;
  }

  // Which both stay as long as the program does.
  GDBusNodeInfo *const interfaces = g_dbus_node_info_new_for_xml(introspection, nullptr);
  static const GDBusInterfaceVTable table{&authorize, &property, nullptr, {}};
  g_dbus_connection_register_object(agent.connection, agentPath, interfaces->interfaces[0], &table, &agent,
                                    nullptr, nullptr);
  g_bus_watch_name_on_connection(agent.connection, "org.freedesktop.GeoClue2", G_BUS_NAME_WATCHER_FLAGS_NONE,
                                 &registerWithService, nullptr, &agent, nullptr);
  g_io_add_watch(g_io_channel_unix_new(0), static_cast<GIOCondition>(G_IO_IN | G_IO_HUP), &obey, &agent);
  g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}
