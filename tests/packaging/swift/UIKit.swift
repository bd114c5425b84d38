// As much of UIKit as the example app uses, as Swift imports it, and of the notifications of Apple's Foundation.
public struct Notification {
  public struct Name: Sendable {}
}

public final class NotificationCenter: @unchecked Sendable {
  public struct Publisher {}

  public static let `default` = NotificationCenter()

  public func publisher(for name: Notification.Name, object: AnyObject? = nil) -> Publisher { Publisher() }

  @discardableResult
  public func addObserver(
    forName name: Notification.Name?, object: Any?, queue: OperationQueue?, using block: @escaping @Sendable (Notification) -> Void
  ) -> AnyObject { self }
}

public final class OperationQueue: @unchecked Sendable {
  public static let main = OperationQueue()
}

@MainActor open class UIResponder {
  public init() {}
}

@MainActor public final class UIApplication: UIResponder {
  public struct LaunchOptionsKey: Hashable, Sendable {}

  public nonisolated static let didBecomeActiveNotification = Notification.Name()
}

@MainActor public protocol UIApplicationDelegate: AnyObject {
  init()
  func application(
    _ application: UIApplication, didFinishLaunchingWithOptions launchOptions: [UIApplication.LaunchOptionsKey: Any]?
  ) -> Bool
}

extension UIApplicationDelegate {
  public static func main() {}
}
