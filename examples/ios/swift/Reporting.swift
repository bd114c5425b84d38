import AppTrackingTransparency
import CoreLocation
import KXPublisher

/// Asks the user what the system wants asked, then starts the library, which asks for nothing.
@MainActor
enum Reporting {
  private static let locationManager = CLLocationManager()

  /// To be called each time the app becomes active: the system shows no question before that. After the user has
  /// answered once, nothing is asked again, and the library is started by the first call only.
  static func start() async {
    if #available(iOS 14, *) {
      _ = await ATTrackingManager.requestTrackingAuthorization()
    }
    KXPublisher.sharedInstance(apiToken: "the API token", hostname: "collect.example.com")
    // Only for an app that wants its position in the messages. The library hears of the answer from the system.
    locationManager.requestWhenInUseAuthorization()
  }
}
