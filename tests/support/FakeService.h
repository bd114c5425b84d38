#pragma once

#include <gio/gio.h>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "tests/support/PrivateBus.h"

namespace kx {

/// A service on a bus that answers what the test says, also what no real one would. GLib's thread serves it,
/// so that no loop has to run; it wakes the default main context when it is called.
class FakeService {
 public:
  /// Not on the bus yet.
  FakeService(const PrivateBus &bus, std::string name) : bus_(bus), name_(std::move(name)) {}
  ~FakeService() { vanish(); }
  FakeService(const FakeService &) = delete;
  FakeService &operator=(const FakeService &) = delete;

  /// Comes on the bus, and goes away.
  void appear();
  void vanish();

  /// Makes the answer to a call, a tuple (floating), or null for none at all, ever.
  using Answer = std::function<GVariant *(GDBusMessage *call)>;
  /// Gives every call of `method` this answer from now on; what no answer was given for gets an empty tuple.
  void answer(const std::string &method, Answer answer);
  /// The same in GVariant's text format; an empty one for no answer.
  void answer(const std::string &method, const std::string &text);
  void refuse(const std::string &method, const std::string &errorName, const std::string &message);
  /// Forgets all of these.
  void answerNothingSpecial();

  /// How often `method` was called, and how often any was.
  int calls(const std::string &method) const;
  int calls() const;

  void emit(const std::string &path, const char *interface, const char *signal, GVariant *parameters);
  void emit(const std::string &path, const char *interface, const char *signal, const std::string &text) {
    emit(path, interface, signal, parsed(text));
  }
  /// Waits until all that was emitted has come to the bus.
  void flush() const;

  /// A value in GVariant's text format, floating.
  static GVariant *parsed(const std::string &text);

 private:
  static GDBusMessage *whenMessage(GDBusConnection *connection, GDBusMessage *message, gboolean isIncoming,
                                   gpointer data);
  GDBusMessage *replyTo(GDBusMessage *call);

  const PrivateBus &bus_;
  const std::string name_;
  std::shared_ptr<GDBusConnection> connection_;
  guint filter_ = 0;

  mutable std::mutex mutex_;
  std::map<std::string, Answer> answers_;
  std::map<std::string, std::pair<std::string, std::string>> refusals_;
  std::map<std::string, int> calls_;
};

}  // namespace kx
