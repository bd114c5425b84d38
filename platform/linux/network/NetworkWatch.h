#pragma once

#include <glib.h>

#include <functional>
#include <memory>

namespace kx {

/// Listens on a main context to the kernel's network configuration: interfaces, addresses, routes and rules.
/// It costs that context nothing while none of them changes.
class NetworkWatch {
 public:
  /// Called by the thread that runs the context, one call for a burst of changes: after any change at least
  /// one call follows, even if the kernel had to drop its news.
  using Observer = std::function<void()>;

  /// Changes count from now on; they are told once it is attached. Null when the kernel refuses.
  static std::shared_ptr<NetworkWatch> open(Observer mayHaveChanged);
  /// One that hears nothing of the kernel: its observer is called for `checkSoon` alone.
  static std::shared_ptr<NetworkWatch> deaf(Observer mayHaveChanged);
  /// No call begins any more, except one that another thread is about to make.
  ~NetworkWatch();
  NetworkWatch(const NetworkWatch &) = delete;
  NetworkWatch &operator=(const NetworkWatch &) = delete;

  /// Begins to tell on `context`. To be called once.
  void attach(GMainContext *context);

  /// Has the observer called once, as if something had changed. From any thread.
  void checkSoon();

 private:
  struct Source;
  struct Watched;
  static std::shared_ptr<NetworkWatch> make(std::unique_ptr<Watched> watched);
  explicit NetworkWatch(GSource *source) : source_(source) {}

  static gboolean dispatch(GSource *source, GSourceFunc, gpointer);
  static void finalize(GSource *source);

  GSource *const source_;
};

}  // namespace kx
