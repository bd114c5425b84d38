#include "tests/platform/linux/telephony/FakeModemManager.h"

#include <stdexcept>

#include "platform/linux/bus/MainContextScope.h"

namespace kx {

namespace {

const std::string root = "/org/freedesktop/ModemManager1";

std::string modemPath(int number) {
  return root + "/Modem/" + std::to_string(number);
}

std::string simPath(std::optional<int> number) {
  return number ? root + "/SIM/" + std::to_string(*number) : "/";
}

/// Has the changes of properties out at once: the skeletons gather them until the loop is idle.
void flush(gpointer skeleton) {
  g_dbus_interface_skeleton_flush(G_DBUS_INTERFACE_SKELETON(skeleton));
}

GVariant *parsed(const std::string &text) {
  GVariant *const value = g_variant_parse(nullptr, text.c_str(), nullptr, nullptr, nullptr);
  if (value == nullptr) throw std::invalid_argument("not a value: " + text);
  return value;
}

}  // namespace

void FakeModemManager::start() {
  const MainContextScope scope(g_main_context_default());
  connection_ = bus_.connect();
  filter_ = g_dbus_connection_add_filter(connection_.get(), &whenMessage, this, nullptr);
  g_dbus_object_manager_server_set_connection(objects_.get(), connection_.get());
  for (const auto &[number, sim] : sims_) exportSim(sim.get(), number);
  callBus("RequestName", g_variant_new("(su)", "org.freedesktop.ModemManager1", 0U));
}

void FakeModemManager::stop() {
  if (connection_ == nullptr) return;
  for (const auto &[number, sim] : sims_) {
    g_dbus_interface_skeleton_unexport(G_DBUS_INTERFACE_SKELETON(sim.get()));
  }
  g_dbus_object_manager_server_set_connection(objects_.get(), nullptr);
  g_dbus_connection_remove_filter(connection_.get(), filter_);
  g_dbus_connection_close_sync(connection_.get(), nullptr, nullptr);
  connection_.reset();
}

void FakeModemManager::addModem(int number, std::optional<int> sim, std::uint32_t accessTechnologies) {
  const Owned<MmGdbusModem> modem(mm_gdbus_modem_skeleton_new(), &g_object_unref);
  mm_gdbus_modem_set_sim(modem.get(), simPath(sim).c_str());
  mm_gdbus_modem_set_state(modem.get(), MM_MODEM_STATE_REGISTERED);
  mm_gdbus_modem_set_access_technologies(modem.get(), accessTechnologies);
  const Owned<MmGdbusObjectSkeleton> object(mm_gdbus_object_skeleton_new(modemPath(number).c_str()),
                                            &g_object_unref);
  mm_gdbus_object_skeleton_set_modem(object.get(), modem.get());
  g_dbus_object_manager_server_export(objects_.get(), G_DBUS_OBJECT_SKELETON(object.get()));
  modems_[number] = modem;
}

void FakeModemManager::removeModem(int number) {
  modems_.erase(number);
  g_dbus_object_manager_server_unexport(objects_.get(), modemPath(number).c_str());
}

void FakeModemManager::setSim(int modem, std::optional<int> sim) {
  mm_gdbus_modem_set_sim(modems_.at(modem).get(), simPath(sim).c_str());
  flush(modems_.at(modem).get());
}

void FakeModemManager::setState(int modem, MMModemState state) {
  mm_gdbus_modem_set_state(modems_.at(modem).get(), state);
  flush(modems_.at(modem).get());
}

void FakeModemManager::setAccessTechnologies(int modem, std::uint32_t accessTechnologies) {
  mm_gdbus_modem_set_access_technologies(modems_.at(modem).get(), accessTechnologies);
  flush(modems_.at(modem).get());
}

void FakeModemManager::setSignalQuality(int modem, std::uint32_t percent) {
  mm_gdbus_modem_set_signal_quality(modems_.at(modem).get(), g_variant_new("(ub)", percent, TRUE));
  flush(modems_.at(modem).get());
}

void FakeModemManager::setOperatorIdentifier(int sim, const std::string &operatorIdentifier) {
  auto &skeleton = sims_[sim];
  if (skeleton == nullptr) {
    skeleton.reset(mm_gdbus_sim_skeleton_new(), &g_object_unref);
    if (connection_ != nullptr) exportSim(skeleton.get(), sim);
  }
  mm_gdbus_sim_set_operator_identifier(skeleton.get(), operatorIdentifier.c_str());
  flush(skeleton.get());
}

void FakeModemManager::answerInstead(const std::string &method, const std::string &answer) {
  const std::lock_guard<std::mutex> lock(mutex_);
  answers_[method] = answer;
}

void FakeModemManager::answerAgain(const std::string &method) {
  const std::lock_guard<std::mutex> lock(mutex_);
  answers_.erase(method);
}

int FakeModemManager::calls(const std::string &method) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = calls_.find(method);
  return found == calls_.end() ? 0 : found->second;
}

void FakeModemManager::emit(const std::string &path, const char *interface, const char *signal,
                            const std::string &parameters) {
  g_dbus_connection_emit_signal(connection_.get(), nullptr, path.c_str(), interface, signal,
                                parsed(parameters), nullptr);
}

void FakeModemManager::exportSim(MmGdbusSim *sim, int number) const {
  g_dbus_interface_skeleton_export(G_DBUS_INTERFACE_SKELETON(sim), connection_.get(), simPath(number).c_str(),
                                   nullptr);
}

void FakeModemManager::callBus(const char *method, GVariant *parameters) const {
  GVariant *const answer = g_dbus_connection_call_sync(
      connection_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", method,
      parameters, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
  if (answer == nullptr) throw std::runtime_error(std::string("the bus refuses ") + method);
  g_variant_unref(answer);
}

GDBusMessage *FakeModemManager::whenMessage(GDBusConnection *connection, GDBusMessage *message,
                                            gboolean incoming, gpointer data) {
  const bool isCall = g_dbus_message_get_message_type(message) == G_DBUS_MESSAGE_TYPE_METHOD_CALL;
  if (incoming == FALSE || !isCall) return message;
  if (!static_cast<FakeModemManager *>(data)->answered(connection, message)) return message;
  g_object_unref(message);
  return nullptr;
}

bool FakeModemManager::answered(GDBusConnection *connection, GDBusMessage *call) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const std::string method = g_dbus_message_get_member(call);
  ++calls_[method];
  g_main_context_wakeup(nullptr);  // where somebody may wait for it
  const auto answer = answers_.find(method);
  if (answer == answers_.end()) return false;
  if (answer->second.empty()) return true;
  GDBusMessage *const reply = g_dbus_message_new_method_reply(call);
  g_dbus_message_set_body(reply, parsed(answer->second));
  g_dbus_connection_send_message(connection, reply, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
  g_object_unref(reply);
  return true;
}

}  // namespace kx
