import SwiftUI
import UIKit

@main
struct ExampleApp: App {
  private let becameActive = NotificationCenter.default.publisher(for: UIApplication.didBecomeActiveNotification)

  var body: some Scene {
    WindowGroup {
      Text("Hello")
        .onReceive(becameActive) { _ in Task { await Reporting.start() } }
    }
  }
}
