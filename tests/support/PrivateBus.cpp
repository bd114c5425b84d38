#include "tests/support/PrivateBus.h"

#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace kx {

namespace {

GDBusConnection *tryToConnect(const std::string &address) {
  return g_dbus_connection_new_for_address_sync(
      address.c_str(),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, nullptr);
}

}  // namespace

PrivateBus::PrivateBus() : address_("unix:path=" + directory_.path() + "/bus") {
  std::ofstream(directory_.path() + "/bus.conf")
      << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
         " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
         "<busconfig><type>custom</type><auth>EXTERNAL</auth><listen>"
      << address_
      << "</listen>\n"
         "<policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>"
         "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>\n";
  setenv("DBUS_SYSTEM_BUS_ADDRESS", address_.c_str(), 1);
  start();
}

std::shared_ptr<GDBusConnection> PrivateBus::connect() const {
  GDBusConnection *const connection = tryToConnect(address_);
  if (connection == nullptr) throw std::runtime_error("no connection to " + address_);
  return {connection, &g_object_unref};
}

void PrivateBus::start() {
  daemon_ = std::make_unique<ChildProcess>(std::vector<std::string>{
      "/usr/bin/dbus-daemon", "--nofork", "--config-file=" + directory_.path() + "/bus.conf"});
  const bool isUp = eventually([this] {
    GDBusConnection *const connection = tryToConnect(address_);
    if (connection == nullptr) return false;
    g_object_unref(connection);
    return true;
  });
  if (!isUp) throw std::runtime_error("dbus-daemon does not answer: " + daemon_->errors());
}

void PrivateBus::stop() {
  daemon_->sendSignal(SIGKILL);
  daemon_.reset();
  unlink((directory_.path() + "/bus").c_str());
}

}  // namespace kx
