// As much of CoreLocation as the example app uses, as Swift imports it.
public final class CLLocationManager {
  public init() {}
  public func requestWhenInUseAuthorization() {}
}
