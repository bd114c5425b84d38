// swift-tools-version:5.3
import PackageDescription

// The library as script/xcframework makes it. Its sources are not for SwiftPM to build: they come in two languages that
// share the name of the library's own header.
let package = Package(
  name: "KXPublisher",
  platforms: [.iOS(.v12)],
  products: [.library(name: "KXPublisher", targets: ["KXPublisher"])],
  targets: [.binaryTarget(name: "KXPublisher", path: "build/ios/KXPublisher.xcframework")]
)
