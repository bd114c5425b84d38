// swift-tools-version:5.5
import PackageDescription

// A package that takes the library as its users do: by the URL of a repository, and by a tag.
let package = Package(
  name: "Host",
  platforms: [.iOS(.v12)],
  dependencies: [.package(url: "file:///checked/KXPublisher", from: "1.0.0")],
  targets: [
    .target(
      name: "Host",
      dependencies: [
        .product(name: "KXPublisher", package: "KXPublisher", condition: .when(platforms: [.iOS])),
        .product(name: "KXPublisherTestKit", package: "KXPublisher", condition: .when(platforms: [.iOS])),
      ])
  ]
)
