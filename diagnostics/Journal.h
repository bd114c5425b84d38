#pragma once

#include <mutex>
#include <optional>
#include <string>

#include "KXPublisher/diagnostics/KXDiagnosis.h"
#include "KXPublisher/platform/foundation/Error.h"

namespace kx {

/// Notes what happens on a message's road, for `KXPublisher::diagnosis`. The floors above say it with one
/// line each; nothing reads the journal back but a diagnosis, so it changes nothing of what the library does.
///
/// There is one in a process. Everything may be called from any thread, takes a short lock, and throws
/// nothing: an entry for which there is no memory is left out.
class Journal {
 public:
  static Journal &shared();

  // ---- The start
  void entryCalled() noexcept;
  void publisherMade() noexcept;
  void clientMade(const std::optional<std::string> &apiToken,
                  const std::optional<std::string> &hostname) noexcept;
  /// A timer or a notification has come on the main loop.
  void mainLoopServed() noexcept;
  void applicationMoved(bool toBackground) noexcept;

  // ---- The access token
  void loginImpossible() noexcept;
  void loginStarted() noexcept;
  void loginFailed(const Error &error) noexcept;
  /// With status 0 for an answer that is none of HTTP.
  void loginRefused(long status) noexcept;
  void loginWithoutToken(long status) noexcept;
  void tokenReceived() noexcept;
  void retryScheduled(double delay) noexcept;
  void retryFired() noexcept;

  // ---- Reports and messages
  void reportMade(KXDiagnosis::Identifier identifier) noexcept;
  void reportHandedOver() noexcept;
  void reportDropped(KXDiagnosis::Drop reason) noexcept;
  void messageSent() noexcept;
  void messageFailed(const Error &error) noexcept;
  /// With status 0 for an answer that is none of HTTP.
  void messageAnswered(long status) noexcept;

  /// What has been noted, with all ages as of now.
  KXDiagnosis diagnosis() const;

 private:
  template <class Entry>
  void note(Entry entry) noexcept;

  mutable std::mutex mutex_;
  KXDiagnosis diagnosis_;
};

}  // namespace kx
