// As much of SwiftUI as the example app uses.
import UIKit

@MainActor public protocol View {}

extension View {
  public func onReceive(_ publisher: NotificationCenter.Publisher, perform action: @escaping (Notification) -> Void) -> some View { self }
}

public struct Text: View {
  public init(_ content: String) {}
}

@resultBuilder public enum ViewBuilder {
  public static func buildBlock<Content: View>(_ content: Content) -> Content { content }
}

@MainActor public protocol Scene {}

@resultBuilder public enum SceneBuilder {
  public static func buildBlock<Content: Scene>(_ content: Content) -> Content { content }
}

public struct WindowGroup<Content: View>: Scene {
  public init(@ViewBuilder content: () -> Content) {}
}

@MainActor public protocol App {
  associatedtype Body: Scene
  @SceneBuilder var body: Body { get }
  init()
}

extension App {
  public static func main() {}
}
