#pragma once

#include <memory>
#include <optional>
#include <string>

#include "KXPublisher/platform/Application.h"
#include "KXPublisher/platform/Geocoder.h"
#include "KXPublisher/platform/foundation/Export.h"

namespace kx {

/// What the library cannot learn from a Linux system, and the host tells it.
struct LinuxHostOptions {
  /// The identifier for advertising, a UUID text. Without one no message is ever sent.
  std::optional<std::string> advertisingIdentifier;
  /// False when the user has asked not to be tracked. The identifier is reported as it is all the same; a
  /// host that respects the choice gives the all-zero one then, or none.
  bool advertisingTrackingEnabled = true;
  /// A PEM file of certificate authorities to trust beside the system's.
  std::optional<std::string> certificateAuthorityFile;
  /// Whether the host may work in the background.
  BackgroundRefreshStatus backgroundRefreshStatus = BackgroundRefreshStatus::available;
  /// Finds places instead of the library's own table (docs/geocoding.md); a null pointer for that one. Has to
  /// keep `Geocoder`'s promises: any thread, returns at once, its handler at most once and never from within
  /// the call.
  std::shared_ptr<Geocoder> geocoder;
  /// The application's identifier, "org.example.Host", for a host that has no GApplication with one: of Qt,
  /// SDL or plain GLib. It is the name of its desktop entry, without ".desktop". A GApplication's goes before
  /// it, and it goes before the one that a Flatpak sandbox knows. A host without any of these has no
  /// `bundleId`, no `asn` and no location.
  std::optional<std::string> applicationIdentifier;
};

/// The host application's side of the Linux platform. The host runs GLib's default main context; the thread
/// that runs it is the main thread.
///
/// The library's first call, made on that thread, reads the environment (languages, data directories) and the
/// identifier of the host's GApplication, by which the application is known: a host that has one makes it
/// before that call. One that has none gives its identifier in the options.
///
/// A host that becomes a daemon does so before its first call. The library stays with the process that has
/// made it: a child that is forked later, and does not call `exec`, holds none of the library's connections
/// and locks, and there nothing is done; one line in the log says so when the child uses the library or runs
/// a main loop. `fork` waits where the library is in the middle of a step of TLS, for milliseconds, a second
/// at the most: the child could not even exit with TLS's locks taken. The host's own files and handlers of
/// signals are left as they are.
///
/// Everything may be called from any thread, returns at once and throws nothing.
class KX_EXPORT LinuxHost {
 public:
  /// Gives the library its options. To be called before anything else of the library; false, without any
  /// effect, when it comes too late.
  [[nodiscard]] static bool setOptions(LinuxHostOptions options) noexcept;

  /// The application has entered the background: its windows are hidden, or it is being suspended. Ignored
  /// while it is there already.
  static void didEnterBackground() noexcept;

  /// It is about to return to the foreground. Ignored while it is there already; an application starts there.
  static void willEnterForeground() noexcept;
};

}  // namespace kx
