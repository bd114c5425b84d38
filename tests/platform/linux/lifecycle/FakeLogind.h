#pragma once

#include <gio/gio.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/PrivateBus.h"

namespace kx {

/// A logind as a test plays it, with all its moods. It lives on the test's own main loop, from its making to
/// its end.
class FakeLogind {
 public:
  enum class Mood {
    grants,             ///< a lock to whoever asks
    refuses,            ///< with an error
    hangs,              ///< and answers when `answerNow` is called, if ever
    talksNonsense,      ///< answers with values of other types
    sendsNoDescriptor,  ///< but the index of one
    sendsAWrongIndex    ///< with a descriptor
  };

  explicit FakeLogind(const PrivateBus &bus);
  ~FakeLogind();
  FakeLogind(const FakeLogind &) = delete;
  FakeLogind &operator=(const FakeLogind &) = delete;

  Mood mood = Mood::grants;
  /// `InhibitDelayMaxUSec`; longer than any test takes.
  std::uint64_t longestDelay = 600'000'000;
  /// The arguments of every `Inhibit`, as "what, who, mode".
  std::vector<std::string> requests;
  /// How often the longest delay has been read.
  int delaysRead = 0;

  /// How many of the locks that it has granted are held.
  std::size_t heldLocks();
  /// Grants what it was asked for while it hung.
  void answerNow();

  void prepareForSleep(bool start) { emit("PrepareForSleep", g_variant_new("(b)", start ? TRUE : FALSE)); }
  /// Emits a signal of its manager's; takes over a floating value.
  void emit(const char *signal, GVariant *parameters) const;

 private:
  static void whenCalled(GDBusConnection *connection, const gchar *sender, const gchar *path,
                         const gchar *interface, const gchar *method, GVariant *parameters,
                         GDBusMethodInvocation *invocation, gpointer data);
  void inhibit(GDBusMethodInvocation *invocation);
  void grant(GDBusMethodInvocation *invocation, gint32 index = 0);
  void tellDelay(GDBusMethodInvocation *invocation);

  const std::shared_ptr<GDBusConnection> connection_;
  std::vector<guint> objects_;
  std::vector<int> locks_;  ///< the ends of pipes that hang up when the others are closed
  std::vector<GDBusMethodInvocation *> unanswered_;
};

}  // namespace kx
