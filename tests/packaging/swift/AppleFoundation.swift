// As much of what Apple's Foundation and its bridge to Objective-C give as the example's tests use. There are no String and
// no Dictionary of Objective-C's here: script/check-swift writes text() for every literal, and lastMessage(device).
import KXPublisher
import KXPublisherTestKit

func text() -> NSString { fatalError("only its type is asked for") }

struct Message {
  subscript(key: NSString) -> Any? { nil }
}

func lastMessage(_ device: KXPublisherSimulatedDevice) -> Message? { nil }

extension NSString: @retroactive Equatable {
  public static func == (one: NSString, other: NSString) -> Bool { one === other }
}
