#include "platform/linux/telephony/ModemManagerClient.h"

#include <utility>

#include "platform/linux/bus/Weakly.h"

namespace kx {

namespace {

constexpr const char *serviceName = "org.freedesktop.ModemManager1";
constexpr const char *objectManagerPath = "/org/freedesktop/ModemManager1";
constexpr const char *objectManagerInterface = "org.freedesktop.DBus.ObjectManager";
constexpr BusProperties modemProperties{"org.freedesktop.ModemManager1.Modem",
                                        {"AccessTechnologies", "Sim", "State"}};
constexpr BusProperties simProperties{"org.freedesktop.ModemManager1.Sim", {"OperatorIdentifier"}};

}  // namespace

ModemManagerClient::ModemManagerClient(std::shared_ptr<LinuxRunLoop> mainRunLoop, Observer observer,
                                       Intervals intervals)
    : mainRunLoop_(std::move(mainRunLoop)),
      observer_(std::move(observer)),
      intervals_(intervals),
      nextReading_(mainRunLoop_->context()) {}

// ---- The service comes and goes

void ModemManagerClient::use(GDBusConnection *connection) {
  nameWatch_.reset();
  leave();
  connection_ = retained(connection);
  if (connection == nullptr) return;
  nameWatch_.emplace(connection, serviceName, G_BUS_NAME_WATCHER_FLAGS_NONE, mainRunLoop_->context(),
                     weakly(*this, &ModemManagerClient::meet), weakly(*this, &ModemManagerClient::leave));
}

void ModemManagerClient::meet(const char *owner) {
  leave();
  service_.emplace(connection_.get(), owner, mainRunLoop_->context());
  // Subscribed first, so that nothing changes unnoticed between the reading and the subscriptions. The SIM's
  // object is none of those that the object manager manages.
  const BusPeer::Signal changed =
      weakly(*this, [](ModemManagerClient &client, GVariant *) { client.noteChange(); });
  service_->followProperties(modemProperties, nullptr, changed);
  service_->followProperties(simProperties, nullptr, changed);
  service_->subscribe(objectManagerInterface, "InterfacesAdded", objectManagerPath, nullptr, changed);
  service_->subscribe(objectManagerInterface, "InterfacesRemoved", objectManagerPath, nullptr, changed);
  read();
}

void ModemManagerClient::leave() {
  if (!service_) return;
  service_.reset();
  nextReading_.cancel();
  observer_(Subscription());
}

// ---- When it is read

void ModemManagerClient::noteChange() {
  // The first one sets the time: changes without end must not put the reading off without end.
  if (std::exchange(changed_, true)) return;
  if (!isReading_) readLater(intervals_.toGatherChanges);
}

void ModemManagerClient::readLater(unsigned int milliseconds) {
  nextReading_.schedule(std::chrono::milliseconds(milliseconds), weakly(*this, &ModemManagerClient::read));
}

// ---- The reading

void ModemManagerClient::read() {
  changed_ = false;
  isReading_ = true;
  ask(objectManagerPath, objectManagerInterface, "GetManagedObjects", nullptr, "(a{oa{sa{sv}}})",
      [](ModemManagerClient &client, GVariant *objects) {
        if (objects == nullptr) {
          client.finishReading(Subscription(), false);
        } else if (const auto modem = modemOf(objects)) {
          client.readSim(*modem, {std::nullopt, radioAccessTechnologyOf(*modem)});
        } else {
          client.finishReading(Subscription(), true);
        }
      });
}

void ModemManagerClient::readSim(const Modem &modem, Subscription subscription) {
  if (modem.simPath.empty()) {
    finishReading(subscription, true);
    return;
  }
  ask(modem.simPath, BusPeer::propertiesInterface, "Get",
      g_variant_new("(ss)", simProperties.interface, simProperties.names[0]), "(v)",
      [subscription = std::move(subscription)](ModemManagerClient &client, GVariant *answer) mutable {
        if (answer != nullptr) subscription.homeOperator = homeOperatorIn(answer);
        client.finishReading(subscription, answer != nullptr);
      });
}

void ModemManagerClient::finishReading(const Subscription &subscription, bool answered) {
  isReading_ = false;
  if (changed_) {
    readLater(intervals_.toGatherChanges);
  } else if (!answered) {
    readLater(intervals_.betweenAttempts);
  }
  observer_(subscription);
}

void ModemManagerClient::ask(const std::string &path, const char *interface, const char *method,
                             GVariant *parameters, const char *answerType,
                             std::function<void(ModemManagerClient &client, GVariant *answer)> then) {
  if (!service_) return;  // it has gone meanwhile
  service_->call(path, interface, method, parameters, answerType,
                 weakly(*this, [then = std::move(then)](ModemManagerClient &client, GVariant *answer,
                                                        const GError *) { then(client, answer); }),
                 intervals_.toAnswer);
}

}  // namespace kx
