// swift-tools-version:5.5
import PackageDescription

// The library from its sources, for Swift Package Manager. What is shared with other packages (version, licence, home
// page) is in packaging/about.json; packaging/check.py holds the lists below against what CMake compiles for iOS.
//
// Four targets, cut by who can compile them: what is portable builds wherever Swift does, the rest needs iOS.

/// What is no source of any target.
let besides = [
  ".ci", "CMakeLists.txt", "CMakePresets.json", "KXPublisher.podspec", "KXPublisherTestKit.podspec", "LICENSE",
  "CHANGELOG.md", "CONTRIBUTING.md", "README.md", "SECURITY.md", "THIRD-PARTY-NOTICES.md", "benchmarks",
  "bindings/gobject", "cmake", "docs", "examples", "packaging", "script", "tests", "tools", "platform/linux",
]
let portable = [
  "diagnostics", "platform/LocalNotificationCenter.cpp", "platform/Platform.cpp", "platform/SerialOperationQueue.cpp",
  "platform/URLSession.cpp", "platform/foundation", "providers", "publisher", "transport",
]
/// Their counterparts on iOS are in Objective-C++.
let elsewhere = ["platform/json", "publisher/KXConstants.cpp"]
let device = ["platform/apple", "bindings/objective-c"]
let simulated = [
  "platform/simulated/SimulatedApplication.cpp", "platform/simulated/SimulatedBundle.cpp",
  "platform/simulated/SimulatedCollectionService.cpp", "platform/simulated/SimulatedFiber.cpp",
  "platform/simulated/SimulatedLocation.cpp", "platform/simulated/SimulatedPlatform.cpp",
  "platform/simulated/SimulatedReachability.cpp", "platform/simulated/SimulatedRunLoop.cpp",
  "platform/simulated/SimulatedScheduler.cpp", "platform/simulated/SimulatedScope.cpp",
  "platform/simulated/SimulatedSingleInstances.cpp", "platform/simulated/SimulatedTelephony.cpp",
  "platform/simulated/SimulatedTrace.cpp", "platform/simulated/SimulatedWebView.cpp",
]
let testKit = ["bindings/objective-c/testkit"]

let package = Package(
  name: "KXPublisher",
  platforms: [.iOS(.v12)],
  products: [
    .library(name: "KXPublisher", targets: ["KXPublisher"]),
    // The simulated device, for an app's unit tests; never for the app itself.
    .library(name: "KXPublisherTestKit", targets: ["KXPublisherTestKit"]),
  ],
  targets: [
    .target(
      name: "KXPublisherPortable", path: ".", exclude: besides + elsewhere, sources: portable,
      publicHeadersPath: "include", cxxSettings: [.headerSearchPath(".")], linkerSettings: [.linkedLibrary("z")]),
    .target(
      name: "KXPublisher", dependencies: ["KXPublisherPortable"], path: ".", exclude: besides + testKit, sources: device,
      resources: [.copy("packaging/ios/PrivacyInfo.xcprivacy")], publicHeadersPath: "include",
      cxxSettings: [.headerSearchPath(".")],
      linkerSettings: [
        .linkedFramework("AdSupport"), .linkedFramework("CoreFoundation"), .linkedFramework("CoreLocation"),
        .linkedFramework("CoreTelephony"), .linkedFramework("Foundation"), .linkedFramework("SystemConfiguration"),
        .linkedFramework("UIKit"),
      ]),
    .target(
      name: "KXPublisherSimulated", dependencies: ["KXPublisherPortable"], path: ".", exclude: besides,
      sources: simulated, publicHeadersPath: "include", cxxSettings: [.headerSearchPath(".")]),
    .target(
      name: "KXPublisherTestKit", dependencies: ["KXPublisher", "KXPublisherSimulated"], path: ".", exclude: besides,
      sources: testKit, publicHeadersPath: "include/KXPublisher/testkit", cxxSettings: [.headerSearchPath(".")]),
    .testTarget(
      name: "KXPublisherTestKitTests", dependencies: ["KXPublisher", "KXPublisherTestKit"],
      path: "examples/testkit"),
  ],
  cxxLanguageStandard: .cxx17
)
