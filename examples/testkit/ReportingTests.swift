// What an app's unit tests can say of its reports, on a simulated device and in no time. On a Mac:
//
//   xcodebuild test -scheme KXPublisher-Package -destination 'platform=iOS Simulator,name=iPhone 16'

import KXPublisher
import KXPublisherTestKit
import XCTest

final class ReportingTests: XCTestCase {
  // The process has one device and one publisher, whichever test comes first.
  private let device = KXPublisherSimulatedDevice.install()

  override func setUp() {
    super.setUp()
    KXPublisher.sharedInstance(apiToken: "the API token", hostname: "collect.example.com")
    device.advance(5)
    device.forgetMessages()
  }

  func testReportsEveryTenMinutes() {
    device.advance(1200)
    XCTAssertEqual(device.messages.count, 2)
  }

  func testReportsThatTheAppLeavesTheForeground() {
    device.enterBackground()
    device.advance(1)
    XCTAssertEqual(device.messages.count, 1)
    device.returnToForeground()
    device.advance(6)
    XCTAssertEqual(device.messages.count, 2)
  }

  func testReportsWhereTheDeviceIs() {
    device.setPlace(country: "DE", state: "Berlin", city: "Berlin", postalCode: "10115", secondsFromGMT: 3600)
    device.move(latitude: 52.53, longitude: 13.38, horizontalAccuracy: 5)
    device.advance(600)
    XCTAssertEqual(device.messages.last?[dataKeyLocationLatitude] as? Double, 52.53)
    XCTAssertEqual(device.messages.last?[dataKeyLocationCity] as? String, "Berlin")
  }

  func testLosesWhatTheNetworkLoses() {
    device.failNextMessage()
    device.advance(600)
    XCTAssertEqual(device.messages.count, 1)
    device.advance(600)
    XCTAssertEqual(device.messages.count, 2)
  }
}
