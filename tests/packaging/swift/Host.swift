// A host in Swift, against the headers as they are. What Apple's Foundation adds to Swift is not there: texts are NSString,
// and so on.
import KXPublisher
import KXPublisherTestKit

func text() -> NSString { fatalError("only its type is asked for") }

func useTheLibrary() {
  let publisher: KXPublisher = KXPublisher.sharedInstance(apiToken: text(), hostname: nil)
  KXPublisher.sharedInstance(apiToken: nil, hostname: text())
  publisher.enableDebugging()
  publisher.disableDebugging()
  let key: NSString = dataKeyIfa
  let described: NSString = publisher.description
  let delay: Double = loggingFirstTimeDelay
  let version: Double = KXPublisherVersionNumber
  _ = (key, described, delay, version)
}

func useTheSimulatedDevice() {
  let device: KXPublisherSimulatedDevice = .install()
  device.advance(5)
  device.enterBackground()
  device.returnToForeground()

  device.advertisingIdentifier = nil
  device.model = text()
  device.systemVersion = text()
  device.bundleIdentifier = text()
  device.radioAccessTechnology = nil
  device.connection = .cellular
  if device.connection == .wifi { device.connection = .none }
  device.insertSIM(withCountryCode: text(), networkCode: text())
  device.removeSIM()
  device.move(latitude: 52.5, longitude: 13.25, horizontalAccuracy: 5)
  device.setPlace(country: text(), state: nil, city: text(), postalCode: nil, secondsFromGMT: 3600)

  let logins: Int = device.loginCount
  _ = (device.messages.count, device.logLines.count, logins)
  device.forgetMessages()
  device.answerNextLogin(withStatusCode: 401)
  device.answerNextMessage(withStatusCode: 500)
  device.failNextMessage()
  device.revokeAccessTokens()
}
